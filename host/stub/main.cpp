#include "stub/CloudStub.h"
#include "stub/ObjectStore.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>

namespace {
struct ProgramOptions {
    StubOptions service;
    std::string folder;             // empty for one that goes with the program
    std::vector<std::string> users; // as given
    int port = 0;
    int64_t speed = 0; // bytes a second; 0 for as fast as it goes
    bool verbose = false;
};

// A folder that is removed with all it holds.
class ThrowawayFolder {
public:
    ThrowawayFolder() {
        std::string name =
            (std::filesystem::temp_directory_path() / ("nimbrel-cloud-stub-" + std::string(6, 'X'))).string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error(name + ": cannot be made");
        path = name;
    }
    ~ThrowawayFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ThrowawayFolder(const ThrowawayFolder&) = delete;
    ThrowawayFolder& operator=(const ThrowawayFolder&) = delete;

    std::filesystem::path path;
};
} // namespace

static StubUser parseUser(const std::string& text) {
    const size_t colon = text.find(':');
    StubUser user;
    user.name = text.substr(0, colon);
    if (colon != std::string::npos) user.password = text.substr(colon + 1);
    constexpr size_t LONGEST_NAME = 30;
    if (user.password.empty() || user.name.size() > LONGEST_NAME || !ObjectStore::isName(user.name)) {
        throw CLI::ValidationError("--user", "'" + text + "' is not NAME:PASSWORD");
    }
    return user;
}

static void describeProgram(CLI::App& program, ProgramOptions& options) {
    program.name("nimbrel-cloud-stub");
    program.set_help_flag("-h,--help", "Show this help and exit");
    program.add_option("--user", options.users, "An account; may be given several times")
        ->type_name("NAME:PASSWORD")
        ->required()
        ->allow_extra_args(false);
    program
        .add_option("--port", options.port,
                    "Port of the web API; the object store has the next one.\n0, the default, for any two")
        ->type_name("N")
        ->check(CLI::Range(0, 65534));
    program.add_option("--data", options.folder, "Folder of the accounts' files, kept; without it they go in the end")
        ->type_name("FOLDER");
    program.add_option("--host", options.service.host, "Address to listen on, 127.0.0.1 unless told")
        ->type_name("ADDRESS");
    program
        .add_option("--speed", options.speed, "Each file or part goes at so many bytes a second, as over a slow line")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    program.add_flag("-v,--verbose", options.verbose,
                     "Tell each request on standard error, without what is secret in it");
    program.footer("Prints three lines for a shell, so that nimbrel finds the service and trusts it, and serves until\n"
                   "Ctrl-C. For development only: it holds passwords as they are, and sends no mail.\n\n"
                   "Example:\n"
                   "  nimbrel-cloud-stub --user anna:secret --data cloud");
}

static void tell(const StubRequest& request) {
    fmt::print(stderr, "{} {} {}{}{}\n", request.isStore ? "store" : "api", request.method, request.path,
               request.range.empty() ? "" : " ", request.range);
}

// For eval or to paste.
static void printEnvironment(const CloudStub& stub) {
    fmt::print("export SSL_CERT_FILE='{}'\n", std::filesystem::absolute(stub.caFile()).string());
    fmt::print("export NIMBREL_CLOUD_API='{}'\n", stub.apiEndpoint());
    fmt::print("export NIMBREL_CLOUD_STORE='{}'\n", stub.storeEndpoint());
    std::fflush(stdout);
}

static void serve(ProgramOptions& options) {
    sigset_t endings;
    sigemptyset(&endings);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&endings, signal);
    pthread_sigmask(SIG_BLOCK, &endings, nullptr); // before there are threads, which inherit it

    std::optional<ThrowawayFolder> throwaway;
    if (options.folder.empty()) throwaway.emplace();
    options.service.folder = throwaway ? throwaway->path : std::filesystem::path(options.folder);
    options.service.certificateHosts = {options.service.host, "localhost"};
    options.service.apiPort = options.port;
    options.service.storePort = options.port > 0 ? options.port + 1 : 0;
    CloudStub stub(options.service);
    stub.setFaults([&options](const StubRequest& request) {
        if (options.verbose) tell(request);
        StubFault fault;
        fault.bytesPerSecond = options.speed;
        return fault;
    });
    printEnvironment(stub);
    int signal = 0;
    sigwait(&endings, &signal);
}

int main(int argc, char** argv) {
    CLI::App program("A stand-in for the cloud service on this machine: web API and object store, over TLS.");
    ProgramOptions options;
    describeProgram(program, options);
    try {
        program.parse(argc, argv);
        for (const std::string& text : options.users) options.service.users.push_back(parseUser(text));
        serve(options);
        return 0;
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "nimbrel-cloud-stub: {}\n", error.what());
        return 1;
    }
}
