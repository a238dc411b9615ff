/* A record as a picture: writes a script into gnuplot. */
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "ctl/clock.h"
#include "ctl/watch.h"

/* Columns as in the heading of a record: 1 time, 2 channel, 6 ppm, 8 FIFO size, 9 fill. */
static constexpr const char *SCRIPT = R"(
set datafile separator ','
set datafile missing NaN
set terminal pngcairo size 1000,600
stats record skip 1 using 1 nooutput
set xdata time
set timefmt '%s'
set xrange [STATS_min:STATS_max+1]
set format x '%H:%M:%S'
set key outside
set multiplot layout 2,1
set ylabel 'FIFO fill in %'
set yrange [0:100]
plot for [c=1:3] record skip 1 using 1:($2==c && $8>0 ? 100.0*$9/$8 : NaN) with lines title word(paths,c)
set ylabel 'ppm off 128 x rate'
set yrange [*:*]
plot for [c=1:3] record skip 1 using 1:($2==c ? $6 : NaN) with lines title word(paths,c), \
    0 with lines linecolor 'gray' notitle
)";
static constexpr int NOT_FOUND = 127 << 8; // of the shell that starts it

/* As a string of gnuplot's. */
static std::string quote(const std::string &text)
{
    std::string quoted;
    for (const char c : text)
        quoted += std::string(c == '\'' ? 2 : 1, c);
    return "'" + quoted + "'";
}

/* A line end in a name would start a command of gnuplot's. */
static bool has_control_character(const std::string &text)
{
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return iscntrl(static_cast<unsigned char>(c)) != 0; });
}

/* gnuplot would draw on the terminal where it cannot write. */
static bool is_writable(const std::string &path)
{
    FILE *file = fopen(path.c_str(), "we");
    return file != nullptr && fclose(file) == 0;
}

static RESULT_E run_gnuplot(const std::string &record, const std::string &picture)
{
    FILE *gnuplot = popen("gnuplot 2>/dev/null", "we"); // NOLINT(cert-env33-c): ours
    if (gnuplot == nullptr) return fail(NOT_SO, "gnuplot: %s", strerror(errno));
    (void)fprintf(gnuplot, "record = %s\nset output %s\npaths = '", quote(record).c_str(),
                  quote(picture).c_str());
    for (const char *path : path_names)
        (void)fprintf(gnuplot, "%s ", path);
    (void)fprintf(gnuplot, "'\n%s", SCRIPT);
    const int status = pclose(gnuplot);
    if (status == 0) return DONE;
    if (status == NOT_FOUND) return fail(NOT_SO, "no gnuplot here: apt install gnuplot-nox");
    return fail(NOT_SO, "gnuplot could not draw %s: is it a record, with a sample in it?",
                record.c_str());
}

RESULT_E plot(const std::string &path)
{
    char record[PATH_MAX]; // absolute, because gnuplot runs what stands behind a leading "<"
    if (realpath(path.c_str(), record) == nullptr)
        return fail(NOT_SO, "%s: %s", path.c_str(), strerror(errno));
    if (has_control_character(record))
        return fail(NOT_SO, "the file's path has a control character in it; rename it");
    const std::string picture = std::string(record) + ".png";
    const std::string unfinished = picture + ".new";
    if (!is_writable(unfinished))
        return fail(NOT_SO, "%s: %s; copy the record to a directory that this user may write",
                    unfinished.c_str(), strerror(errno));

    RESULT_E result = run_gnuplot(record, unfinished);
    if (result == DONE && rename(unfinished.c_str(), picture.c_str()) != 0)
        result = fail(NOT_SO, "%s: %s; move it away", picture.c_str(), strerror(errno));
    if (result == DONE) {
        (void)printf("%s\n", picture.c_str());
    } else {
        (void)unlink(unfinished.c_str()); // the failure is told already
    }
    return result;
}
