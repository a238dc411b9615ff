/* The subcommand status: how the three clocks stand, as text for a person or as JSON. */
#pragma once

#include "ctl/result.h"
#include "ctl/snapshot.h"

/**
 * Prints how the service and its channels stand.
 * @param as_json  one JSON object in place of the text
 * @return DONE; NOT_SO when a rate was refused or the status file cannot be read; NO_SERVICE
 */
RESULT_E print_status(bool as_json);

/** @return size and fill as numbers; "no report yet" when nothing is known */
std::string describe_fifo(const SNAPSHOT_T &snapshot, int i);

/** @return an age as "3.2 s ago", "5 min ago" and so on */
std::string describe_age(double age_s);
