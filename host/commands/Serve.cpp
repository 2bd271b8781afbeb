#include "cloud/EngineSession.h"
#include "commands/Commands.h"
#include "serve/PointServer.h"
#include "support/Interrupt.h"
#include "support/Text.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <fmt/format.h>
#include <memory>
#include <poll.h>

namespace {
struct ServeOptions {
    std::vector<std::string> paths;
    PointServer::Settings server{"127.0.0.1", 8080, 256};
};

// Lines of many threads on their way to the one that owns standard output and standard error.
class Lines {
public:
    void add(const std::string& line) {
        std::lock_guard lock(mutex);
        text += line;
    }
    std::string take() {
        std::lock_guard lock(mutex);
        return std::exchange(text, {});
    }

private:
    std::mutex mutex; // guards text
    std::string text;
};
} // namespace

// Passes the lines on until a signal comes.
static void report(Lines& requests, Lines& problems, Host& host) {
    constexpr int PERIOD_IN_MS = 200;
    for (bool isLast = false;; isLast = isInterrupted()) {
        host.output.print(requests.take());
        host.output.flush();
        const std::string problem = problems.take();
        if (!problem.empty()) host.console.note(problem.substr(0, problem.size() - 1));
        if (isLast) return;
        ::poll(nullptr, 0, PERIOD_IN_MS); // a signal ends it early
    }
}

static void runServe(const ServeOptions& options, Host& host) {
    const EngineSession session;
    Catalogue catalogue(options.paths);
    Lines requests;
    Lines problems;
    const bool isQuiet = host.console.isQuiet();
    PointServer server(
        catalogue, options.server,
        [&](const std::string& line) {
            if (!isQuiet) requests.add(line);
        },
        [&](const std::string& line) { problems.add(line + "\n"); });
    const size_t files = catalogue.list().size();
    if (files == 0) host.console.note("there is no point file yet");
    const bool isVersion6 = options.server.address.find(':') != std::string::npos;
    host.output.print(fmt::format("Serving {} at http://{}:{}/\n", counted(files, "point file"),
                                  isVersion6 ? "[" + options.server.address + "]" : options.server.address,
                                  server.port()));
    host.output.flush();
    server.start();
    report(requests, problems, host);
    server.stop();
    host.output.print(requests.take());
}

void addServeCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<ServeOptions>();
    CLI::App* command = program.add_subcommand("serve", "Serve point files to other machines over HTTP");
    command->add_option("PATH", options->paths, "Point files, and folders of such with all that is below")
        ->required()
        ->type_name("PATH");
    command->add_option("--address", options->server.address, "Address to listen at; 0.0.0.0 for all of this machine")
        ->capture_default_str()
        ->type_name("ADDRESS");
    command->add_option("--port", options->server.port, "Port to listen at; 0 for one that is free")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(0, 65535));
    command->add_option("--threads", options->server.mostThreads, "Connections served at once, each by a thread")
        ->capture_default_str()
        ->type_name("N")
        ->check(wholeNumberFrom(1, 10000));
    command->footer(
        "A file is served under its path below the folder, a list of all at /. Requests are logged to standard\n"
        "output, not with --quiet. Ctrl-C stops the server. There is no encryption and no sign-in: put a web\n"
        "server in front where that is needed.\n\n"
        "Example: nimbrel serve clouds --port 8080, then nimbrel view http://localhost:8080/town.opc");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runServe(*options, host); }; });
}
