#!/bin/sh
# What a node of the topology runs: interfaces as /etc/ovix-router/interfaces says ("NAME ADDRESS MTU"
# a line), and where there is an agent.yaml beside it, FRR's daemons, ovix-fpm and the agent. Ends when
# one of our two programs does.
set -eu
config=/etc/ovix-router
sysctl -q -w net.ipv4.ip_forward=0 net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.default.rp_filter=0
sysctl -q -w net.mpls.platform_labels=1048575 || echo "router: the kernel's MPLS is missing" >&2
while read -r name address mtu; do
    # containerlab links the interfaces after the node has started.
    until ip link show "$name" >/dev/null 2>&1; do sleep 0.2; done
    ip addr add "$address" dev "$name" || true
    [ "$name" = lo ] || ip link set "$name" mtu "$mtu" up
done <"$config/interfaces"
if [ -f "$config/gateway" ]; then
    ip route replace default via "$(cat "$config/gateway")"
fi
[ -f "$config/agent.yaml" ] || exec sleep infinity

ovix-fpm --tables router &
fpm=$!
mkdir -p /run/frr
cp "$config"/*.conf /etc/frr/
chown -R frr:frr /run/frr /etc/frr
while read -r daemon; do
    words=""
    [ "$daemon" != zebra ] || words="-M dplane_fpm_nl -K 15"
    # shellcheck disable=SC2086 # words of their own
    "/usr/lib/frr/$daemon" -d -f "/etc/frr/$daemon.conf" $words </dev/null
done <"$config/daemons"
ovix-agent run "$config/agent.yaml" --live --tables router --create --carrier &
agent=$!
trap 'kill $agent $fpm 2>/dev/null; wait; exit 0' TERM INT
while kill -0 $agent 2>/dev/null && kill -0 $fpm 2>/dev/null; do sleep 1; done
exit 1
