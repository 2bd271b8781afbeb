#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/Interrupt.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <exception>
#include <new>
#include <sstream>

// Parsing, and the one place where a command's end becomes an exit status and a message.

static constexpr int DONE = 0; // a command may have a status of its own instead
static constexpr int FAILED = 1;
static constexpr int WRONG_USAGE = 2;

namespace {
struct Switches {
    bool quiet = false;
    bool verbose = false;
};
} // namespace

static void describeProgram(CLI::App& program) {
    program.name("nimbrel");
    program.set_version_flag("--version", std::string("nimbrel ") + nimbrelVersion(), "Show the version and exit");
    program.set_help_flag("-h,--help", "Show this help and exit");
    program.require_subcommand(1);
    program.get_formatter()->label("SUBCOMMAND", "COMMAND");
    program.footer("Examples:\n"
                   "  nimbrel sample town.las                make points to try things with\n"
                   "  nimbrel build town.las -o town.opc     turn them into a point file\n"
                   "  nimbrel info town.opc                  tell about it\n"
                   "  nimbrel view town.opc                  look at it in a window\n"
                   "  nimbrel render town.opc -o town.png    or draw it into a picture\n"
                   "  nimbrel points town.opc -o back.las    get the points back\n"
                   "  nimbrel edit town.opc --select class:5 --delete\n"
                   "                                         take some out; 'restore' brings them back\n"
                   "  nimbrel collide town.opc crane.stl     find where it touches a mesh\n"
                   "  nimbrel export town.opc -o town.obj    make a model of cubes of it\n"
                   "  nimbrel serve clouds                   let other machines see a folder of point files\n\n"
                   "'nimbrel COMMAND --help' tells more. Exit status: 0 done, 1 failed, 2 wrong usage,\n"
                   "128 + N ended by signal N (130 for Ctrl-C; unfinished files are removed).");
}

// They stand before a command as well as behind it, and a command may have commands of its own.
static void addSwitches(CLI::App& command, Switches& switches) {
    command.add_flag("-q,--quiet", switches.quiet, "No progress and no summary; errors and warnings only");
    command.add_flag("-v,--verbose", switches.verbose, "Show the engine's log on standard error");
    for (CLI::App* further : command.get_subcommands({})) {
        further->group("Commands");
        addSwitches(*further, switches);
    }
}

// The parser's help, version or complaint; the exit status that goes with it.
static int reportParse(const CLI::App& program, const CLI::ParseError& error, Host& host) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        std::ostringstream text;
        program.exit(error, text, text);
        host.output.print(text.str());
        host.output.flush();
        return DONE;
    }
    auto used = program.get_subcommands();
    std::string command;
    const CLI::App* deepest = &program;
    for (; !used.empty(); used = deepest->get_subcommands()) {
        deepest = used.front();
        command += " " + deepest->get_name();
    }
    const std::vector<std::string> unknown = deepest->remaining();
    // The parser only says that a command is missing when it does not know the one that is there.
    const bool lacksCommand = !deepest->get_subcommands({}).empty();
    const bool isUnknown = lacksCommand && !unknown.empty() && !unknown.front().starts_with('-');
    std::string problem = error.what();
    if (isUnknown) {
        problem = "there is no command '" + unknown.front() + "'";
    } else if (lacksCommand && unknown.empty()) {
        problem = "a command is missing";
    }
    host.console.error(problem + "\nTry 'nimbrel" + command + " --help'.");
    return WRONG_USAGE;
}

static int parseAndRun(int argc, const char* const* argv, Host& host) {
    CLI::App program(
        "Builds point files of any size, shows them, looks into them, compares them, and gets their points back.");
    Command chosen;
    Switches switches;
    describeProgram(program);
    addBuildCommand(program, chosen);
    addCloudCommand(program, chosen);
    addCollideCommand(program, chosen);
    addCoverageCommand(program, chosen);
    addDeviationCommand(program, chosen);
    addEditCommand(program, chosen);
    addExportCommand(program, chosen);
    addGradeCommand(program, chosen);
    addInfoCommand(program, chosen);
    addPointsCommand(program, chosen);
    addRenderCommand(program, chosen);
    addRestoreCommand(program, chosen);
    addSampleCommand(program, chosen);
    addServeCommand(program, chosen);
    addViewCommand(program, chosen);
    addSwitches(program, switches);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return reportParse(program, error, host);
    }
    host.console.setQuiet(switches.quiet);
    host.output.redirectLog(switches.verbose);
    chosen(host);
    host.output.flush();
    return host.status;
}

static int runToEnd(int argc, const char* const* argv, Host& host) {
    try {
        return parseAndRun(argc, argv, host);
    } catch (const OutputClosed&) {
        return host.status;
    } catch (const UsageFailure& failure) {
        host.console.error(failure.what());
        return WRONG_USAGE;
    } catch (const std::bad_alloc&) {
        checkInterrupt();
        host.console.error("there is not enough memory");
    } catch (const std::exception& failure) {
        checkInterrupt(); // what fails after a signal, such as an input that ends, fails because of it
        host.console.error(failure.what());
    }
    return FAILED;
}

int runCommandLine(int argc, const char* const* argv) {
    Host host;
    watchInterrupts();
    try {
        return runToEnd(argc, argv, host);
    } catch (const Interrupted&) {
        host.console.error("interrupted");
        return exitStatusOfInterrupt();
    }
}
