/* A record as a picture: writes a script into gnuplot. */
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ctl/watch.h"

/* Columns as in the heading of a record: 1 time, 2 channel, 6 ppm, 8 FIFO size, 9 fill. */
static constexpr const char *SCRIPT = R"(
set datafile separator ','
set datafile missing NaN
set terminal pngcairo size 1000,600
set xdata time
set timefmt '%s'
set format x '%H:%M:%S'
set key outside
set multiplot layout 2,1
paths = 'hdmi analog earc/spdif'
set ylabel 'FIFO fill in %'
set yrange [0:100]
plot for [c=1:3] record skip 1 using 1:($2==c && $8>0 ? 100.0*$9/$8 : NaN) with lines title word(paths,c)
set ylabel 'ppm off 128 x rate'
set yrange [*:*]
plot for [c=1:3] record skip 1 using 1:($2==c ? $6 : NaN) with lines title word(paths,c)
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

RESULT_E plot(const std::string &path)
{
    char record[PATH_MAX]; // absolute, because gnuplot runs what stands behind a leading "<"
    if (realpath(path.c_str(), record) == nullptr)
        return fail(NOT_SO, "%s: %s", path.c_str(), strerror(errno));
    const std::string picture = std::string(record) + ".png";
    FILE *gnuplot =
        popen("gnuplot", "we"); // NOLINT(cert-env33-c): no word of it comes from outside
    if (gnuplot == nullptr) return fail(NOT_SO, "gnuplot: %s", strerror(errno));
    (void)fprintf(gnuplot, "record = %s\nset output %s\n%s", quote(record).c_str(),
                  quote(picture).c_str(), SCRIPT);
    const int status = pclose(gnuplot);
    if (status == NOT_FOUND) return fail(NOT_SO, "no gnuplot here: apt install gnuplot-nox");
    if (status != 0)
        return fail(NOT_SO, "gnuplot could not draw %s: is it a record?", path.c_str());
    (void)printf("%s\n", picture.c_str());
    return DONE;
}
