#!/usr/bin/env bash
# The whole road in bursts and one frame at a time, beside its definition and a bare loop: a table of
# instructions, times and heap allocations per frame, or with "instructions" only those, separated by
# tabs, and what-if on a million labels, or with "what-if" only that.
set -euo pipefail
build=$1
what=${2:-all}
bench="$build/bin/fast_bench"

# Traffic, and how many labels or prefixes it has.
rows=('swap 1' 'swap 1000' 'swap 100000' 'swap 1000000' 'pop 1000' 'push3 1000' 'ucmp4 1000'
    'pop_route 100000' 'ip_push 100000' 'flood 1000' 'replicate8 1000')

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Lines of scenario, way and instructions per frame: the difference of two numbers of frames, so that
# whatever is done once cancels. Of replicated frames, per leg.
instructions() {
    local name=$1 routes=$2 log
    rm -f "$work"/counts*
    log=$(valgrind --tool=callgrind --callgrind-out-file="$work/counts" --instr-atstart=no \
        --collect-atstart=no "$bench" instructions "$name" "$routes" 2>&1) ||
        { echo "$log" >&2 && return 1; }
    awk -v scenario="$name/$routes" '
        /^desc: Trigger: Client Request: / { way = $5; frames = $6 }
        /^(summary|totals): / && way != "" {
            if (way in total) {
                few = frames < number[way] ? frames : number[way]
                more = $2 - total[way]
                printf "%s\t%s\t%d\n", scenario, way, (more < 0 ? -more : more) / few + 0.5
            }
            total[way] = $2; number[way] = frames; way = ""
        }' "$work"/counts.*
}

all_instructions() {
    local row
    for row in "${rows[@]}"; do
        # shellcheck disable=SC2086
        instructions $row
    done
}

if [ "$what" = instructions ]; then
    printf 'scenario\troad\tinstructions\n'
    all_instructions
    exit
fi

# What a change would move, of a million labels with an adjacency each.
what_if() {
    local change
    export OVIX_TABLES_DIR="$work/tables"
    mkdir -m 700 "$OVIX_TABLES_DIR"
    seq 16 1000015 | awk '{
        printf "transit %d nexthop as %d via inet 10.0.%d.2 dev east ", $1, $1, $1 % 64
        printf "nexthop as %d via inet 10.1.%d.2 dev west weight 3\n", $1, $1 % 64
    }' | "$build/bin/ovixctl" --tables bench --create lfib load - >"$work/loaded"
    echo
    echo 'what-if on 1,000,000 labels'
    TIMEFORMAT='%R s, of the processor %U s'
    for change in 'link east down' 'via 10.0.3.2 weight 3' 'lfib del 100'; do
        printf '%-24s' "$change"
        time "$build/bin/ovixctl" --tables bench what-if "$change" >"$work/moves" 2>"$work/notes"
    done 2>&1
}

if [ "$what" = what-if ]; then
    what_if
    exit
fi

all_instructions >"$work/instructions"
for row in "${rows[@]}"; do
    # shellcheck disable=SC2086
    printf '%s\t%s\n' "${row/ //}" "$("$bench" time $row)" >>"$work/times"
done

cat <<'TEXT'

whole road      instructions a frame     ns a frame                          x bare loop    allocations  by the
               burst single definition     bare  burst single definition     burst single   a frame     fast path
TEXT
awk -F '\t' '
    FILENAME ~ /instructions$/ { count[$1, $2] = $3; next }
    {
        printf "%-13s %6d %6d %10d   %6.1f %6.1f %6.1f %10.1f    %6.2f %6.2f %9.4f %11.1f%%\n", $1,
            count[$1, "burst"], count[$1, "single"], count[$1, "definition"], $2, $3, $4, $5, $6,
            $7, $8, $9
    }' "$work/instructions" "$work/times"
echo
echo 'what the recorder takes, and traces of frames that do not come (ns a frame in bursts without it; instructions)'
for row in 'swap 1000' 'flood 1000' 'pop_route 100000'; do
    # shellcheck disable=SC2086
    printf '%-16s %s\n' "${row/ //}" "$("$bench" overheads $row)"
    awk -F '\t' -v row="${row/ //}" '
        $1 == row { count[$2] = $3 }
        END {
            printf "%-16s %d\trecorder %+d", "  instructions", count["unrecorded"],
                count["burst"] - count["unrecorded"]
            for (way in count)
                if (way ~ /^by-/) printf "\t%s %+d", way, count[way] - count["burst"]
            print ""
        }' "$work/instructions"
done
"$bench" churn 1000000
echo
echo 'workers, each with 4096 frames in memory'
for labels in 1 1000 100000 1000000; do
    "$bench" workers "$labels"
done
what_if
echo '(ucmp4: a choice of four; flood: unknown labels; replicate8: per leg. Times are medians of runs that'
echo 'take turns; of the ratios, too, each to the bare loop of its turn, which has as many entries as there are
labels or prefixes.)'
