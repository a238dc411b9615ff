/* si5351ctl: sees the clocks and drives them, from a shell. Reads the command line. */
#include <CLI/CLI.hpp>

#include "ctl/result.h"
#include "ctl/status.h"

/* What the words of the command line set. */
struct ARGUMENTS_T {
    bool as_json = false;
};

static void add_subcommands(CLI::App *app, ARGUMENTS_T *arguments, RESULT_E *result)
{
    CLI::App *status = app->add_subcommand("status", "how the service and the three clocks stand");
    status->add_flag("--json", arguments->as_json, "as JSON");
    status->callback([=] { *result = print_status(arguments->as_json); });
}

static int run(int argc, char **argv)
{
    CLI::App app("Sees and drives the audio master clocks of the board.", "si5351ctl");
    app.require_subcommand(1);
    ARGUMENTS_T arguments;
    RESULT_E result = DONE;
    add_subcommands(&app, &arguments, &result);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? DONE : BAD_USAGE; // 0: it asked for help
    }
    return result;
}

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) { // out of memory, or a library's own idea
        return fail(NOT_SO, "%s", error.what());
    }
}
