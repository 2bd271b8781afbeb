#include "cloud/EngineSession.h"
#include "cloud/OpenCloud.h"
#include "commands/Commands.h"
#include "support/Failure.h"
#include "support/Text.h"
#include "support/Waiting.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <nimbrel/NimbrelEngine.h>

#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace {
struct RestoreOptions {
    std::string file;
    bool dryRun = false;
};
} // namespace

static void runRestore(const RestoreOptions& options, Host& host) {
    const EngineSession session;
    const OpenCloud cloud(options.file);
    if (cloud.isRemote()) throw CommandFailure(cloud.label(), "only files on this machine can be restored");
    if (access(options.file.c_str(), W_OK) != 0) throw CommandFailure(options.file, "cannot be written to");
    const CloudFacts before = cloud.facts();
    const int64_t missing = before.pointsBuilt - before.points;
    if (!options.dryRun) {
        runAndShow(host.console, "Restoring", [&] { restorePointCloud(cloud.id()); });
        const int64_t still = before.pointsBuilt - cloud.facts().points;
        if (still > 0) {
            const std::string reason = nimbrelLastError();
            throw CommandFailure(options.file, fmt::format("{} of {} deleted points could not be restored{}{}",
                                                           grouped(static_cast<uint64_t>(still)),
                                                           grouped(static_cast<uint64_t>(missing)),
                                                           reason.empty() ? "" : ": ", reason));
        }
    }
    if (host.console.isQuiet()) return;
    host.output.print(fmt::format("{}: {} {}, {} {}\n", options.file, options.dryRun ? "would restore" : "restored",
                                  counted(static_cast<uint64_t>(std::max<int64_t>(missing, 0)), "deleted point"),
                                  grouped(static_cast<uint64_t>(before.pointsBuilt)), options.dryRun ? "then" : "now"));
}

void addRestoreCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<RestoreOptions>();
    CLI::App* command =
        program.add_subcommand("restore", "Bring back all points of a point file that were ever deleted");
    command->add_option("FILE", options->file, "The point file")->required();
    command->add_flag("--dry-run", options->dryRun, "Only say how many points would come back");
    command->footer(
        "Deleted points stay in their file, whoever deleted them and when. Colours and classes stay as they\n"
        "are.\n\n"
        "Example:\n"
        "  nimbrel restore town.opc");
    command->callback([options, &chosen] { chosen = [options](Host& host) { runRestore(*options, host); }; });
}
