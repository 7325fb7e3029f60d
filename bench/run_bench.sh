#!/usr/bin/env bash
# Runs the benchmarks of a build directory: time and allocations, live ports, then instructions per
# frame.
set -euo pipefail
build=$1
frames=20000

"$build/bin/frame_bench" --benchmark_min_time=0.2 --benchmark_counters_tabular=true

# Where the kernel and its privileges allow it; says so where they do not. The deviations of three
# runs tell little.
"$build/bin/live_bench" --benchmark_counters_tabular=true | sed -E '/_(stddev|cv) /d'

# Instructions inside one function and what it calls, divided by the frames sent.
instructions() {
    local scenario=$1 function=$2 log total
    log=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no \
        --toggle-collect="$function" "$build/bin/frame_instructions" "$scenario" "$frames" 2>&1) ||
        { echo "$log" >&2 && return 1; }
    total=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' <<<"$log")
    if [ "${total:-0}" -eq 0 ]; then
        echo "run_bench.sh: $scenario never came to $function" >&2
        return 1
    fi
    echo $((total / frames))
}

printf '\n%-16s %22s %22s\n' 'instructions' 'plugin, per frame' 'whole road, per frame'
for scenario in swap pop push3 ucmp16 stack6_entropy unknown oam_punt \
    pop_ipv4 pop_ipv6 external_fec mtu_exception; do
    plugin=$(instructions "$scenario" 'Ovix::MplsRoutingHandler::processPacket*')
    road=$(instructions "$scenario" 'OvixAgent::Forwarder::receive*')
    printf '%-16s %22s %22s\n' "$scenario" "$plugin" "$road"
done

# What comes in without a label is none of the plugin's handler's business.
for scenario in ip_push pseudowire_cw; do
    road=$(instructions "$scenario" 'OvixAgent::Forwarder::receive*')
    printf '%-16s %22s %22s\n' "$scenario" '-' "$road"
done

# The input step, for frames that are none of its business.
step=$(instructions swap 'Ovix::MplsMldpInputStep::process*')
printf '\n%-16s %22s\n' 'input step' "$step"

"$(dirname "$0")/run_fast_bench.sh" "$build"
