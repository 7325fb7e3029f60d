#!/usr/bin/env bash
# Runs the benchmarks of a build directory: time and allocations, then instructions per frame.
set -euo pipefail
build=$1
frames=20000

"$build/bin/frame_bench" --benchmark_min_time=0.2 --benchmark_counters_tabular=true

# Instructions inside one function and what it calls, divided by the frames sent.
instructions() {
    local log
    log=$(valgrind --tool=callgrind --callgrind-out-file=/dev/null --collect-atstart=no \
        --toggle-collect="$2" "$build/bin/frame_instructions" "$1" "$frames" 2>&1)
    local total
    total=$(sed -n 's/.*Collected : \([0-9]*\).*/\1/p' <<<"$log")
    echo $((total / frames))
}

printf '\n%-16s %22s %22s\n' 'instructions' 'plugin, per frame' 'whole road, per frame'
for scenario in swap pop push3 ucmp16 stack6_entropy unknown oam_punt \
    pop_ipv4 pop_ipv6 ip_push external_fec pseudowire_cw; do
    printf '%-16s %22s %22s\n' "$scenario" \
        "$(instructions "$scenario" 'Ovix::MplsRoutingHandler::processPacket*')" \
        "$(instructions "$scenario" 'OvixAgent::Forwarder::receive*')"
done

# The input step, for frames that are none of its business.
printf '\n%-16s %22s\n' 'input step' "$(instructions swap 'Ovix::MplsMldpInputStep::process*')"
