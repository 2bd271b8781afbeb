#include "cloud/CloudService.h"
#include "cloud/CloudSettings.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/Interrupt.h"
#include "support/Progress.h"
#include "support/Text.h"
#include "support/WidePath.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <iostream>
#include <memory>
#include <thread>

// The files of an account in the cloud service. Each run signs in anew, since the library hands out no token.

namespace {
struct CloudOptions {
    CloudSettings service; // as given; without a password, which would stay in the shell's history
    std::string file;      // of put
    std::vector<std::string> names;
    std::string email;
    int days = 7;
    bool force = false;
    bool passwordFromInput = false;
    bool withoutPassword = false;
};

constexpr int UPLOAD_RUNNING = 1; // states of nimbrelGlimmetUploadState
constexpr int UPLOAD_DONE = 2;
constexpr int UPLOAD_ABORTED = 4;
constexpr std::chrono::milliseconds LOOK_EVERY{50};
} // namespace

static void signIn(const CloudOptions& options) {
    signInToCloud(findCloudSettings(options.service));
}

// The names come from a server and go to a terminal.
static std::string printable(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    }
    return text;
}

static void runLogin(const CloudOptions& options, Host& host) {
    CloudSettings settings = findCloudSettings(options.service, false);
    if (options.passwordFromInput) std::getline(std::cin, settings.password);
    askForMissing(settings);
    signInToCloud(settings);
    if (options.withoutPassword) settings.password.clear();
    const std::string file = keepCloudSettings(settings);
    host.console.note(fmt::format("Signed in as {}; kept in {}, {}", settings.user, file,
                                  options.withoutPassword ? "without the password" : "with the password"));
}

static void runLogout(Host& host) {
    const std::string file = forgetCloudSettings();
    host.console.note(file.empty() ? "No sign-in was kept" : "Removed " + file);
}

static void runList(const CloudOptions& options, Host& host) {
    signIn(options);
    for (const CloudFile& file : listCloudFiles()) {
        host.output.print(
            fmt::format("{:>15}  {}  {}\n", grouped(file.size), printable(file.date), printable(file.name)));
    }
}

// ---- put

// The service is told before the command ends, and its answer waited for; the library ends the transfers by itself.
static void abortUpload() {
    abortGlimmetUpload();
    while (nimbrelGlimmetUploadState() == UPLOAD_RUNNING) std::this_thread::sleep_for(LOOK_EVERY);
}

static void watchUpload(uint64_t size, Console& console) {
    Progress progress(console, "Uploading", size, Progress::BYTES);
    while (nimbrelGlimmetUploadState() == UPLOAD_RUNNING) {
        if (isInterrupted()) {
            abortUpload();
            if (nimbrelGlimmetUploadState() == UPLOAD_DONE) break; // too late: the service has all of it
            checkInterrupt();
        }
        const double share = std::clamp(static_cast<double>(getGlimmetUploadProgress()), 0.0, 1.0);
        progress.update(static_cast<uint64_t>(share * static_cast<double>(size)), share);
        std::this_thread::sleep_for(LOOK_EVERY);
    }
    if (nimbrelGlimmetUploadState() == UPLOAD_DONE) progress.finish(size);
}

// Why the service did not take the file, with the figures that mostly are the reason.
static std::string uploadProblem(uint64_t size) {
    std::string problem = cloudReason("the upload failed");
    const int64_t left = getGlimmetStorageLimit() - getGlimmetStorage();
    if (left >= 0 && size > static_cast<uint64_t>(left)) {
        problem += fmt::format("; the file has {}, and the account has room for {}", byteSize(size),
                               byteSize(static_cast<uint64_t>(left)));
    }
    return problem;
}

static uint64_t sizeOfUpload(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_regular_file(path, error)) {
        const uintmax_t size = std::filesystem::file_size(path, error);
        if (!error) return size;
    }
    throw CommandFailure(path, error ? error.message() : "this is no regular file");
}

// The service's answer at the end of an upload does not tell whether the file is whole; its listing does, if not always
// at once: the engine remembers for two seconds that an account was empty.
static bool isListed(const std::string& name, uint64_t size) {
    constexpr int LOOKS = 3;
    constexpr std::chrono::milliseconds LONGER_THAN_REMEMBERED{2100};
    for (int i = 0; i < LOOKS; ++i) {
        if (i > 0) std::this_thread::sleep_for(LONGER_THAN_REMEMBERED);
        const auto stored = findCloudFile(name);
        if (stored && stored->size == size) return true;
    }
    return false;
}

static void runPut(const CloudOptions& options, Host& host) {
    const std::string& path = options.file;
    const uint64_t size = sizeOfUpload(path);
    const std::string name = path.substr(path.rfind('/') + 1); // a backslash is a character like any other here
    checkCloudName(name);
    signIn(options);
    const bool isThere = findCloudFile(name).has_value(); // the engine tells the old file from the new one by this
    if (isThere && !options.force) {
        throw CommandFailure(path, "the account has a file of this name; --force replaces it");
    }
    checkInterrupt();
    if (!uploadGlimmetFile(widePath(path).c_str())) throw CommandFailure(path, cloudReason("cannot be uploaded"));
    watchUpload(size, host.console);
    if (nimbrelGlimmetUploadState() == UPLOAD_ABORTED) throw CommandFailure(path, "the upload was aborted");
    if (nimbrelGlimmetUploadState() != UPLOAD_DONE) throw CommandFailure(path, uploadProblem(size));
    if (!isListed(name, size)) {
        throw CommandFailure(path, "the service took all of it, but does not list the file with its size");
    }
    if (!host.console.isQuiet()) host.output.print(fmt::format("cloud:{}: {}\n", name, byteSize(size)));
}

// ---- rm, share, usage

static void requireInAccount(const std::string& name) {
    checkCloudName(name);
    if (!findCloudFile(name)) throw CommandFailure(name, "there is no such file in the account");
}

static void runRemove(const CloudOptions& options) {
    signIn(options);
    for (const std::string& name : options.names) requireInAccount(name);
    for (const std::string& name : options.names) {
        checkInterrupt();
        if (!deleteGlimmetFile(widePath(name).c_str())) {
            throw CommandFailure(name, cloudReason("the service did not delete the file"));
        }
    }
}

static bool isEmail(const std::string& text) {
    const size_t at = text.find('@');
    const bool isPlain = text.find_first_of("&#%?\"\\,; \t\r\n") == std::string::npos;
    return isPlain && at != std::string::npos && at > 0 && at + 1 < text.size();
}

static void runShare(const CloudOptions& options, Host& host) {
    const std::string& name = options.names.front();
    if (!isEmail(options.email)) throw UsageFailure("--to: '" + options.email + "' is not an e-mail address");
    signIn(options);
    requireInAccount(name);
    emailGlimmetLink(widePath(options.email).c_str(), widePath(name).c_str(), options.days);
    const std::string problem = nimbrelLastError();
    if (!problem.empty()) throw CommandFailure(name, "the mail may not have been sent: " + problem);
    host.console.note(fmt::format("{}: the service was asked to mail {} a link that is good for {} {}", name,
                                  options.email, options.days, options.days == 1 ? "day" : "days"));
}

static void runUsage(const CloudOptions& options, Host& host) {
    signIn(options);
    const int64_t limit = getGlimmetStorageLimit();
    const int64_t used = getGlimmetStorage();
    if (limit == 0 && used == 0) throw CommandFailure(cloudReason("the service tells nothing about the account"));
    const auto row = [&host](const char* label, int64_t bytes) {
        const auto count = static_cast<uint64_t>(std::max<int64_t>(bytes, 0));
        host.output.print(fmt::format("{:<6} {:>10}  {} bytes\n", label, byteSize(count), grouped(count)));
    };
    row("used", used);
    row("limit", limit);
    row("left", limit - used);
    host.output.print(fmt::format("tier   {:>10}\n", getGlimmetTier()));
}

// ---- The grammar

using CloudRun = std::function<void(const CloudOptions&, Host&)>;

static CLI::App* addCloudSubcommand(CLI::App& cloud, const char* name, const char* description,
                                    const std::shared_ptr<CloudOptions>& options, Command& chosen,
                                    const CloudRun& run) {
    CLI::App* command = cloud.add_subcommand(name, description);
    command->callback([options, run, &chosen] { chosen = [options, run](Host& host) { run(*options, host); }; });
    return command;
}

static void addServiceOptions(CLI::App* command, CloudOptions& options) {
    CloudSettings& service = options.service;
    command->add_option("--api", service.api, "Endpoint of the web API, https://HOST[:PORT]")->type_name("URL");
    command->add_option("--store", service.store, "Endpoint of the object store")->type_name("URL");
    command->add_option("--origin", service.origin, "Web origin, that of the web API unless told")->type_name("URL");
    command->add_option("--user", service.user, "Name of the account")->type_name("NAME");
    command->add_option("--product", service.product, "Number that the service knows this program by, 0 unless told")
        ->type_name("N")
        ->check(wholeNumberFrom(0, INT32_MAX));
}

static void addSignIn(CLI::App& cloud, const std::shared_ptr<CloudOptions>& options, Command& chosen) {
    CLI::App* login = addCloudSubcommand(cloud, "login", "Sign in, and keep the sign-in for later commands", options,
                                         chosen, runLogin);
    addServiceOptions(login, *options);
    login->add_flag("--password-stdin", options->passwordFromInput, "Read the password from standard input");
    login->add_flag("--no-password", options->withoutPassword, "Keep the rest, but not the password");
    addCloudSubcommand(cloud, "logout", "Forget the sign-in that was kept", options, chosen,
                       [](const CloudOptions&, Host& host) { runLogout(host); });
}

static void addFileCommands(CLI::App& cloud, const std::shared_ptr<CloudOptions>& options, Command& chosen) {
    CLI::App* list =
        addCloudSubcommand(cloud, "ls", "List the files: size in bytes, date, name", options, chosen, runList);
    CLI::App* put = addCloudSubcommand(cloud, "put", "Upload a file", options, chosen, runPut);
    put->add_option("FILE", options->file, "The file, which gets its own name in the account")->required();
    put->add_flag("-f,--force", options->force, "Replace the file of this name that the account has");
    CLI::App* remove = addCloudSubcommand(cloud, "rm", "Delete files", options, chosen,
                                          [](const CloudOptions& given, Host&) { runRemove(given); });
    remove->add_option("NAME", options->names, "The files, by their names in the account")->required();
    CLI::App* share =
        addCloudSubcommand(cloud, "share", "Have the service mail someone a link to a file", options, chosen, runShare);
    share->add_option("NAME", options->names, "The file, by its name in the account")->required()->expected(1);
    share->add_option("--to", options->email, "Address of who gets the mail")->required()->type_name("EMAIL");
    share->add_option("--days", options->days, "How long the link is good, 7 unless told")
        ->type_name("N")
        ->check(wholeNumberFrom(1, 3650));
    CLI::App* usage =
        addCloudSubcommand(cloud, "usage", "Tell how much the account holds, and may hold", options, chosen, runUsage);
    for (CLI::App* command : {list, put, remove, share, usage}) addServiceOptions(command, *options);
}

void addCloudCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<CloudOptions>();
    CLI::App* cloud = program.add_subcommand("cloud", "Keep point files in a cloud service, and share them");
    cloud->require_subcommand(1);
    // Its commands inherit it.
    cloud->footer("What is not given as an option comes from the environment (NIMBREL_CLOUD_API, NIMBREL_CLOUD_STORE,\n"
                  "NIMBREL_CLOUD_ORIGIN, NIMBREL_CLOUD_USER, NIMBREL_CLOUD_PASSWORD, NIMBREL_CLOUD_PRODUCT), from the\n"
                  "sign-in that 'login' keeps, or is asked for. The other commands open cloud:NAME.\n\n"
                  "Examples:\n"
                  "  nimbrel cloud login --api https://api.example.org --store https://files.example.org\n"
                  "  nimbrel cloud put town.opc\n"
                  "  nimbrel view cloud:town.opc\n"
                  "  nimbrel cloud share town.opc --to anna@example.org --days 14");
    addSignIn(*cloud, options, chosen);
    addFileCommands(*cloud, options, chosen);
}
