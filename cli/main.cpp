// The scrivo command-line tool. For now it reports its version; the capture
// subcommands (detect, rectify, enhance, scan) build on the same library.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "scrivo/platform.h"

namespace {

void PrintLogLine(int, const char* tag, const char* line, void*) {
    std::fprintf(stderr, "%s: %s\n", tag, line);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"scrivo: find, straighten and enhance document pages in photographs", "scrivo"};
    app.set_version_flag("-V,--version", "scrivo " SCRIVO_VERSION_STRING);
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Print the library's log lines to standard error");
    app.footer("Run 'scrivo <command> --help' for the options of a command.");
    app.require_subcommand(0, 1);

    CLI11_PARSE(app, argc, argv);
    if (verbose) MLogSetSink(PrintLogLine, nullptr);

    if (app.get_subcommands().empty()) {
        std::fputs(app.help().c_str(), stdout);
    }
    return 0;
}
