/* si5351ctl: sees the clocks and drives them, from a shell. Reads the command line. */
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "ctl/chip.h"
#include "ctl/clock.h"
#include "ctl/commands.h"
#include "ctl/console_pipe.h"
#include "ctl/metrics.h"
#include "ctl/result.h"
#include "ctl/status.h"
#include "ctl/watch.h"

/* What the words of the command line set. */
struct ARGUMENTS_T {
    int ch = 0;
    int rate_hz = 0;
    int steps = 1;
    int step_size = 0;
    int seconds = 0;
    std::string image;
    std::string file;
    bool as_json = false;
    bool force = false;
};

/* Turns the name of a path into its channel number; the result is what is wrong with it. */
static std::string replace_name(std::string &word)
{
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        if (word == path_names[i]) word = std::to_string(i + 1);
    }
    if (word == "earc" || word == "spdif") word = "3"; // either half of its name
    const bool is_number = word == "1" || word == "2" || word == "3";
    return is_number ? "" : word + " is no channel: use 1, 2 or 3, or hdmi, analog or earc";
}

static CLI::App *add_channel_command(CLI::App *app, const char *name, const char *purpose, int *ch)
{
    CLI::App *command = app->add_subcommand(name, purpose);
    command->add_option("CHANNEL", *ch, "1, 2 or 3, or hdmi, analog or earc")
        ->required()
        ->transform(CLI::Validator(replace_name, ""));
    return command;
}

static void add_trim(CLI::App *app, const char *name, int direction, ARGUMENTS_T *arguments,
                     RESULT_E *result)
{
    const std::string purpose =
        std::string("trim the clock of a channel, one step or more ") + name;
    CLI::App *trim = add_channel_command(app, name, purpose.c_str(), &arguments->ch);
    trim->add_option("STEPS", arguments->steps, "trim steps, 1 to 48; 1 when left away")
        ->check(CLI::Range(1, 48).description(""));
    trim->callback([=] { *result = trim_clock(arguments->ch, direction, arguments->steps); });
}

static void add_pipe_commands(CLI::App *app, ARGUMENTS_T *arguments, RESULT_E *result)
{
    app->add_subcommand("enable", "let the commands of programs reach the chip")->callback([=] {
        *result = switch_chip_writes(true);
    });
    app->add_subcommand("disable", "keep the commands of programs from the chip")->callback([=] {
        *result = switch_chip_writes(false);
    });
    CLI::App *step = app->add_subcommand("step", "set the size of a trim step for a sample rate");
    step->add_option("RATE", arguments->rate_hz, "sample rate in Hz")->required();
    step->add_option("SIZE", arguments->step_size, "in units of the divider's numerator")
        ->required();
    step->add_flag("--force", arguments->force, "also a size that is out of range");
    step->callback([=] {
        *result = set_step_size(arguments->rate_hz, arguments->step_size, arguments->force);
    });
}

static void add_image_command(CLI::App *app, const char *name, const char *purpose,
                              RESULT_E (*run)(const std::string &), ARGUMENTS_T *arguments,
                              RESULT_E *result)
{
    CLI::App *command = app->add_subcommand(name, purpose);
    command->add_option("--registers", arguments->image,
                        "an image of the chip's registers, such as the simulated chip's file");
    command->callback([=] { *result = run(arguments->image); });
}

static void add_lasting_commands(CLI::App *app, ARGUMENTS_T *arguments, RESULT_E *result)
{
    CLI::App *watching = app->add_subcommand("watch", "show the state live; q quits");
    watching->callback([=] { *result = watch(arguments->seconds); });
    CLI::App *recording =
        app->add_subcommand("record", "append one CSV line per channel each second");
    recording->add_option("FILE", arguments->file, "the CSV file; new lines are added at its end")
        ->required();
    recording->callback([=] { *result = record(arguments->file, arguments->seconds); });
    for (CLI::App *command : {watching, recording})
        command
            ->add_option("--seconds", arguments->seconds, "end after this many seconds; 0: never")
            ->check(CLI::NonNegativeNumber.description(""));
    CLI::App *plotting = app->add_subcommand("plot", "draw a record into FILE.png, with gnuplot");
    plotting->add_option("FILE", arguments->file, "a file that record wrote")->required();
    plotting->callback([=] { *result = plot(arguments->file); });
}

static void add_commands(CLI::App *app, ARGUMENTS_T *arguments, RESULT_E *result)
{
    CLI::App *status = app->add_subcommand("status", "how the service and the three clocks stand");
    status->add_flag("--json", arguments->as_json, "as JSON");
    status->callback([=] { *result = print_status(arguments->as_json); });

    CLI::App *rate =
        add_channel_command(app, "rate", "set the sample rate of a channel", &arguments->ch);
    rate->add_option("RATE", arguments->rate_hz, "in Hz: 44100 to 192000")->required();
    rate->callback([=] { *result = set_rate(arguments->ch, arguments->rate_hz); });

    add_trim(app, "faster", 1, arguments, result);
    add_trim(app, "slower", -1, arguments, result);
    add_channel_command(app, "centre", "trim the clock of a channel back to its centre",
                        &arguments->ch)
        ->callback([=] { *result = centre_clock(arguments->ch); });
    add_pipe_commands(app, arguments, result);
    add_image_command(app, "chip", "read the chip and compare it with the service", check_chip,
                      arguments, result);
    add_image_command(app, "metrics", "print the state in the text format of Prometheus",
                      print_metrics, arguments, result);
    add_lasting_commands(app, arguments, result);
}

static int run(int argc, char **argv)
{
    CLI::App app("Sees and drives the audio master clocks of the board.", "si5351ctl");
    app.require_subcommand(1);
    ARGUMENTS_T arguments;
    RESULT_E result = DONE;
    add_commands(&app, &arguments, &result);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? DONE : BAD_USAGE; // 0: it asked for help
    }
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return result;
    return fail(NOT_SO, "standard output could not be written; is it closed, or the disk full?");
}

/* Otherwise a socket would get the number of a closed standard stream. Only for reading: what is
 * written there must fail as before. */
static void fill_closed_streams()
{
    int fd = 0;
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd > STDERR_FILENO) (void)close(fd); // only opened
}

int main(int argc, char **argv)
{
    fill_closed_streams();
    try {
        return run(argc, argv);
    } catch (const std::exception &error) { // out of memory, or an error inside a library
        return fail(NOT_SO, "%s", error.what());
    }
}
