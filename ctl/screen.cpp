/* Drawing with ncurses: for each channel its numbers, and below them two panels of the last
 * minutes, fill on the left, ppm on the right, newest at the right edge. */
#include "ctl/screen.h"

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <ncurses.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

#include "ctl/status.h"

static constexpr int HEADER_ROWS = 2;
static constexpr int TEXT_ROWS = 2;      // of a channel, above its panels
static constexpr int LEVELS = 5;         // heights that a line can have within a character
static constexpr int LABEL_WIDTH = 8;    // left of a panel
static constexpr double PPM_MARGIN = 10; // above and below the line

static SCREEN *screen; // null while the terminal is not ours

void close_screen()
{
    (void)endwin();
    delscreen(screen);
    screen = nullptr;
}

bool open_screen()
{
    (void)setlocale(LC_ALL, ""); // for the line characters
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return false;
    screen = newterm(nullptr, stdout, stdin);
    if (screen == nullptr) return false; // an unknown kind of terminal
    const char *move_cursor = tigetstr("cup");
    if (move_cursor == nullptr) { // one that only scrolls
        close_screen();
        return false;
    }
    (void)cbreak();
    (void)noecho();
    (void)curs_set(0);
    return true;
}

/* A panel's place and the values at its lower and upper edge. */
struct PANEL_T {
    int top, left, height, width;
    double low, high;
};

/* Mean of the known values that a column shows; NAN without any. The panel shows what there is, but
 * no less than a minute. */
static double column_value(const std::vector<double> &values, int column, int width)
{
    const int size = static_cast<int>(values.size());
    const int span = std::max(size, 60);
    const int first = std::max(column * span / width - (span - size), 0);
    const int end = (column + 1) * span / width - (span - size);
    double sum = 0;
    int count = 0;
    for (int i = first; i < end; i++) {
        if (std::isnan(values[static_cast<size_t>(i)])) continue;
        sum += values[static_cast<size_t>(i)];
        count++;
    }
    return count > 0 ? sum / count : NAN;
}

/* Between two columns whose heights differ by rows. */
static void draw_upright(const PANEL_T &panel, int column, int from_row, int to_row)
{
    const int top = std::min(from_row, to_row) + 1;
    const int length = std::abs(from_row - to_row) - 1;
    if (length > 0) (void)mvvline(panel.top + top, panel.left + column, ACS_VLINE, length);
}

static void draw_line(const PANEL_T &panel, const std::vector<double> &values)
{
    const chtype heights[LEVELS] = {ACS_S9, ACS_S7, ACS_HLINE, ACS_S3, ACS_S1};
    const double scale = (panel.height * LEVELS - 1) / (panel.high - panel.low);
    int last_row = -1;
    for (int column = 0; column < panel.width; column++) {
        const double value = column_value(values, column, panel.width);
        int row = -1;
        if (!std::isnan(value)) {
            const double clipped = std::clamp(value, panel.low, panel.high);
            const auto level = static_cast<int>(std::lround((clipped - panel.low) * scale));
            row = panel.height - 1 - level / LEVELS;
            if (last_row >= 0) draw_upright(panel, column, last_row, row);
            (void)mvaddch(panel.top + row, panel.left + column, heights[level % LEVELS]);
        }
        last_row = row;
    }
}

static void draw_panel(PANEL_T panel, const std::vector<double> &values, const char *unit)
{
    if (panel.height < 1 || panel.width <= LABEL_WIDTH) return;
    (void)mvprintw(panel.top, panel.left, "%.0f %s", panel.high, unit);
    if (panel.height > 1)
        (void)mvprintw(panel.top + panel.height - 1, panel.left, "%.0f %s", panel.low, unit);
    panel.left += LABEL_WIDTH;
    panel.width -= LABEL_WIDTH + 1;
    draw_line(panel, values);
}

/* The upper and lower edge leave room around the line. */
static void fit_to_values(PANEL_T *panel, const std::vector<double> &values)
{
    panel->low = HUGE_VAL;
    panel->high = -HUGE_VAL;
    for (const double value : values) {
        if (std::isnan(value)) continue;
        panel->low = std::min(panel->low, value);
        panel->high = std::max(panel->high, value);
    }
    if (panel->low > panel->high) panel->low = panel->high = 0;
    panel->low -= PPM_MARGIN;
    panel->high += PPM_MARGIN;
}

static void draw_panels(const LIVE_T &live, int i, int top, int height)
{
    std::vector<double> fill_percent;
    std::vector<double> ppm;
    for (const POINT_T &point : live.points[i]) {
        fill_percent.push_back(point.fill * 100);
        ppm.push_back(point.ppm);
    }
    PANEL_T panel = {top, 2, height, COLS / 2 - 2, 0, 100};
    draw_panel(panel, fill_percent, "%");
    panel.left = COLS / 2;
    fit_to_values(&panel, ppm);
    draw_panel(panel, ppm, "ppm");
}

static void draw_numbers(const LIVE_T &live, int i, int row)
{
    char text[160];
    const CLOCK_T &clock = live.now.clocks[i];
    if (clock.known) {
        (void)snprintf(text, sizeof(text), "%d %-10s  %6d Hz  %11.2f Hz  %+7.2f ppm  %s", i + 1,
                       path_names[i], live.now.listed[i].rate_hz, clock.hz, clock.ppm,
                       live.now.listed[i].status);
    } else {
        (void)snprintf(text, sizeof(text), "%d %-10s  %s", i + 1, path_names[i],
                       !live.now.answers       ? "not known"
                       : clock.rate == nullptr ? "REFUSED RATE: set a supported one"
                                               : "NUMERATOR OUT OF RANGE: set the rate again");
    }
    (void)attron(A_BOLD);
    (void)mvaddnstr(row, 0, text, COLS);
    (void)attroff(A_BOLD);
    const std::string fifo = live.now.has_reports ? describe_fifo(live.now, i) : "no report";
    const std::string trim = clock.known ? describe_trim(clock) : "";
    (void)mvaddnstr(row + 1, 2, fifo.c_str(), std::max(COLS / 2 - 3, 0));
    (void)mvaddnstr(row + 1, COLS / 2, trim.c_str(), std::max(COLS - COLS / 2, 0));
}

void draw_screen(const LIVE_T &live)
{
    (void)erase();
    const std::string title =
        live.time + (live.now.answers ? "  the service answers" : "  NO ANSWER FROM THE SERVICE") +
        (live.now.has_reports ? "; newest report " + describe_age(live.now.report_age_s) : "") +
        (live.now.reports_fault.empty() ? "" : "; " + live.now.reports_fault);
    (void)mvaddnstr(0, 0, title.c_str(), COLS);
    (void)mvaddnstr(1, 0, live.news.empty() ? "q quits" : live.news.c_str(), COLS);
    const int rows = (LINES - HEADER_ROWS) / CHANNEL_COUNT;
    for (int i = 0; i < CHANNEL_COUNT; i++) {
        const int top = HEADER_ROWS + i * std::max(rows, TEXT_ROWS);
        draw_numbers(live, i, top);
        draw_panels(live, i, top + TEXT_ROWS, rows - TEXT_ROWS);
    }
    (void)refresh();
}

static bool is_terminal_gone()
{
    pollfd terminal = {STDIN_FILENO, 0, 0};
    return poll(&terminal, 1, 0) == 1; // errors alone are asked for
}

bool wait_for_key(const LIVE_T &live, int limit_ms)
{
    timeout(limit_ms);
    const int key = getch();
    if (key == KEY_RESIZE) draw_screen(live);
    if (key == ERR && is_terminal_gone()) return false;
    return key != 'q' && key != 'Q';
}
