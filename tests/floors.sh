#!/bin/sh
# The floors of the house: prints every include that leads up, and every circle of files.
set -eu
cd "$(dirname "$0")/.."
mkdir -p build
git grep -oE '^#include "[a-z_]+/[^"]+' -- '*.h' '*.cpp' | sed 's/:#include "/ /' >build/includes
[ -s build/includes ] || { echo "$0: no include is found" >&2 && exit 1; }
awk '
    BEGIN {
        may["decode"] = may["bus"] = may["net"] = may["log"] = "none"
        may["chip"] = "(bus|log)/"
        may["sim"] = "(bus|decode|log)/"
        may["trim"] = "(chip|log)/"
        may["service"] = "(trim|net|log)/|chip/i2c_access"
        may["console"] = "(trim|log)/"
        may["genlock"] = "chip/rates"
        may["ctl"] = "(decode|bus)/|chip/(rates|outputs)|service/(si5351_client|protocol)|net/"
        may["entry"] = "."
    }
    { split($1, from, "/"); split($2, to, "/") }
    from[1] in may && from[1] != to[1] && $2 !~ "^(" may[from[1]] ")" {
        print $1 " may not include " $2
        bad = 1
    }
    END { exit bad }' build/includes
# A header and its source are one; tsort names the files of a circle.
sed 's/\.\(cpp\|h\)\>//g' build/includes | awk '$1 != $2' | tsort >/dev/null
