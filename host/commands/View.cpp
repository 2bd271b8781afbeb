#include "cloud/EngineSession.h"
#include "commands/Commands.h"
#include "viewer/Viewer.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <memory>

namespace {
struct ViewOptions {
    std::vector<std::string> files;
    PixelSize size{1280, 800};
};
} // namespace

void addViewCommand(CLI::App& program, Command& chosen) {
    const auto options = std::make_shared<ViewOptions>();
    CLI::App* command = program.add_subcommand("view", "Show point files in a window");
    command
        ->add_option("FILE", options->files,
                     "The point files, shown together, each with its own switches:\npaths, cloud:NAME or URLs")
        ->required();
    command
        ->add_option_function<std::string>(
            "--size", [options](const std::string& text) { options->size = parsePixelSize(text); },
            "Width and height of the window")
        ->default_str("1280x800")
        ->type_name("WIDTHxHEIGHT")
        ->check(pixelSize());
    command->footer("Drag to orbit, drag with the right button to move, turn the wheel to zoom to the cursor.\n"
                    "'?' in the window lists the keys. Nothing is remembered from one run to the next.\n\n"
                    "Example: nimbrel view town.opc forest.opc");
    command->callback([options, &chosen] {
        chosen = [options](Host&) {
            const EngineSession session;
            runViewer(options->files, options->size);
        };
    });
}
