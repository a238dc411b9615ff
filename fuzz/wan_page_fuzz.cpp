/* Pages to the search for this machine's public address. An input is a byte with the row of the
 * table of sources, in its highest bit whether new markers follow (their lengths, then the two),
 * and the page. The page and the text lie in blocks of their exact sizes, so no byte beyond is
 * touched unseen. */
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "net/socket_calls.h"
#include "net/vx_net_api.h"

static const VX_WAN_SOURCES_T given_sources = stWanSources;

/* Up to size bytes from the front of what is left of the input. */
static std::string take(std::string *rest, size_t size)
{
    std::string taken = rest->substr(0, size);
    rest->erase(0, taken.size());
    return taken;
}

static size_t take_length(std::string *rest)
{
    const std::string byte = take(rest, 1);
    return byte.empty() ? 0 : static_cast<uint8_t>(byte[0]) % VX_WAN_SLOT_SIZE;
}

static void set_markers(std::string *rest, int row)
{
    const size_t start = take_length(rest);
    const size_t end = take_length(rest);
    (void)snprintf(stWanSources.startCode[row], VX_WAN_SLOT_SIZE, "%s", take(rest, start).c_str());
    (void)snprintf(stWanSources.endCode[row], VX_WAN_SLOT_SIZE, "%s", take(rest, end).c_str());
}

/* The same search in another way; false when there is nothing to copy. */
static bool search(const std::vector<char> &page, int row, std::string *text)
{
    const std::string start = stWanSources.startCode[row];
    const std::string end = stWanSources.endCode[row];
    auto first = std::search(page.begin(), page.end(), start.begin(), start.end());
    if (first == page.end() && !start.empty()) return false;
    first += static_cast<std::ptrdiff_t>(start.size());
    const auto last = std::search(first, page.end(), end.begin(), end.end());
    if ((last == page.end() && !end.empty()) || last - first > 63) return false;
    text->assign(first, last);
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    stWanSources = given_sources;
    std::string rest(reinterpret_cast<const char *>(data), size);
    const std::string choice = take(&rest, 1);
    const int bits = choice.empty() ? 0 : static_cast<uint8_t>(choice[0]);
    const int row = bits % 128 % VX_WAN_SOURCES;
    if (bits >= 128) set_markers(&rest, row);

    if (rest.empty()) return 0; // an empty reply is no page
    const std::vector<char> page(rest.begin(), rest.end());
    const std::vector<char> untouched(NET_WAN_TEXT_SIZE, 'u');
    std::vector<char> text = untouched;
    const bool found = net_copy_marked({page.data(), page.size()}, row, text.data());
    std::string wanted;
    const bool there = search(page, row, &wanted);
    const bool same =
        there ? memcmp(text.data(), wanted.c_str(), wanted.size() + 1) == 0 : text == untouched;
    if (found == there && same) return 0;
    (void)fprintf(stderr, "row %d: %s, wanted %s\n", row, found ? "found" : "nothing",
                  there ? wanted.c_str() : "nothing");
    abort();
}
