/* Runs in the kernel on every received frame of an interface, before the network stack: labelled
 * frames to this station go to the agent's AF_XDP socket of their queue, all others to the network
 * stack. Of an attachment circuit every frame goes to the socket; where VLAN sub-interfaces are circuits, every
 * tagged one.
 */
#include <linux/bpf.h> /* types for the other headers */
#include <linux/if_ether.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

struct {
    __uint(type, BPF_MAP_TYPE_XSKMAP);
    __uint(max_entries, 1); /* set to the number of queues before the program is loaded */
    __type(key, __u32);
    __type(value, __u32);
} agentSockets SEC(".maps");

enum { intakeLabelled, intakeTagged, intakeAll, intakeToVlans }; /* as XdpProgram has them */

struct {
    __uint(type, BPF_MAP_TYPE_ARRAY);
    __uint(max_entries, 1);
    __type(key, __u32);
    __type(value, __u32);
} agentIntake SEC(".maps");

/* Set before the program is loaded. */
const volatile __u8 station[ETH_ALEN];

struct tag {
    __be16 control;
    __be16 type;
};

enum { maxTags = 3 }; /* as the agent's parser */

static __always_inline int isTag(__be16 type) {
    return type == bpf_htons(ETH_P_8021Q) || type == bpf_htons(ETH_P_8021AD) ||
           type == bpf_htons(ETH_P_QINQ1);
}

static __always_inline int isForStation(const struct ethhdr* ethernet) {
    if (ethernet->h_dest[0] & 1) {
        return 1;
    }
    for (int i = 0; i < ETH_ALEN; i++) {
        if (ethernet->h_dest[i] != station[i]) {
            return 0;
        }
    }
    return 1;
}

static __always_inline __u32 intake(void) {
    const __u32 first = 0;
    const __u32* set = bpf_map_lookup_elem(&agentIntake, &first);
    return set ? *set : intakeLabelled;
}

SEC("xdp")
int redirectLabelled(struct xdp_md* context) {
    const __u32 taken = intake();
    const void* end = (const void*)(long)context->data_end;
    const struct ethhdr* ethernet = (const void*)(long)context->data;
    const struct tag* tag = (const void*)(ethernet + 1);
    if ((const void*)tag > end) {
        return XDP_PASS;
    }
    __be16 type = ethernet->h_proto;
    if (taken == intakeAll || (taken == intakeTagged && isTag(type))) {
        return bpf_redirect_map(&agentSockets, context->rx_queue_index, XDP_PASS);
    }
    for (int i = 0; i < maxTags && isTag(type); i++) {
        if ((const void*)(tag + 1) > end) {
            return XDP_PASS;
        }
        type = tag->type;
        tag++;
    }
    if (type != bpf_htons(ETH_P_MPLS_UC) && type != bpf_htons(ETH_P_MPLS_MC)) {
        return XDP_PASS;
    }
    const int mayBeForVlan = taken == intakeToVlans && isTag(ethernet->h_proto);
    if (!mayBeForVlan && !isForStation(ethernet)) {
        return XDP_PASS;
    }
    return bpf_redirect_map(&agentSockets, context->rx_queue_index, XDP_PASS);
}
