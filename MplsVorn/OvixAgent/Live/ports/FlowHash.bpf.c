/* Runs in the kernel on every frame that the network stack sends on a TAP device of several queues,
 * and chooses the queue: the frames of a flow all come to one. A flow is identified by its VLANs, the
 * label stack to the bottom and the IP header beneath, as FlowProgram does it for packet sockets.
 */
#include <linux/bpf.h> /* types for the other headers */
#include <linux/if_ether.h>
#include <linux/in.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

enum { maxTags = 3, deepestStack = 16, vlanNumber = 0xfff };

struct flow {
    struct __sk_buff* frame;
    __u32 at; /* the next byte to be read */
    __u32 hash;
};

static __always_inline void mix(struct flow* flow, __u32 word) {
    flow->hash = (flow->hash ^ word) * 0x9e3779b1;
}

/* Without success, which is nonzero, the frame ends before. */
static __always_inline int peek(const struct flow* flow, __u32 behind, void* to, __u32 bytes) {
    return bpf_skb_load_bytes(flow->frame, flow->at + behind, to, bytes);
}

static __always_inline int mixWords(struct flow* flow, __u32 behind, int words) {
    for (int i = 0; i < words; i++) {
        __be32 word;
        if (peek(flow, behind + 4 * i, &word, sizeof word)) {
            return -1;
        }
        mix(flow, word);
    }
    return 0;
}

static __always_inline void mixPorts(struct flow* flow, __u8 protocol) {
    switch (protocol) {
    case IPPROTO_TCP:
    case IPPROTO_UDP:
    case IPPROTO_SCTP:
    case IPPROTO_DCCP:
    case IPPROTO_UDPLITE:
        mixWords(flow, 0, 1);
    }
}

static __always_inline void mixIpv4(struct flow* flow) {
    __u8 header[20];
    if (peek(flow, 0, header, sizeof header) || mixWords(flow, 12, 2)) {
        return;
    }
    const int isFragment = (header[6] & 0x3f) | header[7];
    mix(flow, header[9]);
    if (!isFragment) {
        flow->at += 4 * (header[0] & 0xf);
        mixPorts(flow, header[9]);
    }
}

static __always_inline void mixIpv6(struct flow* flow) {
    __be32 begin[2];
    if (peek(flow, 0, begin, sizeof begin) || mixWords(flow, 8, 8)) {
        return;
    }
    const __u32 flowLabel = bpf_ntohl(begin[0]) & 0xfffff;
    if (flowLabel) {
        mix(flow, flowLabel);
        return;
    }
    flow->at += 40;
    mixPorts(flow, (bpf_ntohl(begin[1]) >> 8) & 0xff);
}

static __always_inline void mixLabels(struct flow* flow) {
    for (int i = 0; i < deepestStack; i++) {
        __be32 read;
        if (peek(flow, 0, &read, sizeof read)) {
            return;
        }
        const __u32 entry = bpf_ntohl(read);
        mix(flow, entry >> 12);
        flow->at += sizeof read;
        if (entry & 0x100) {
            __u8 first;
            if (peek(flow, 0, &first, sizeof first)) {
                return;
            }
            if (first >> 4 == 4) {
                mixIpv4(flow);
            } else if (first >> 4 == 6) {
                mixIpv6(flow);
            }
            return;
        }
    }
}

static __always_inline int isTag(__be16 type) {
    return type == bpf_htons(ETH_P_8021Q) || type == bpf_htons(ETH_P_8021AD) ||
           type == bpf_htons(ETH_P_QINQ1);
}

/* The EtherType behind the tags; 0 when the frame ends before. */
static __always_inline __be16 mixTags(struct flow* flow) {
    __be16 type;
    if (peek(flow, 2 * ETH_ALEN, &type, sizeof type)) {
        return 0;
    }
    flow->at += ETH_HLEN;
    mix(flow, flow->frame->vlan_present ? flow->frame->vlan_tci & vlanNumber : 0);
    for (int i = 0; i < maxTags && isTag(type); i++) {
        __be16 tag[2];
        if (peek(flow, 0, tag, sizeof tag)) {
            return 0;
        }
        mix(flow, bpf_ntohs(tag[0]) & vlanNumber);
        type = tag[1];
        flow->at += sizeof tag;
    }
    return type;
}

/* The lowest bits, by which the queue is chosen, depend on every bit of what was mixed. */
static __always_inline __u32 finished(__u32 hash) {
    hash = (hash ^ hash >> 16) * 0x85ebca6b;
    hash = (hash ^ hash >> 16) * 0xc2b2ae35;
    return hash ^ hash >> 16;
}

SEC("socket")
int flowHash(struct __sk_buff* frame) {
    struct flow flow = {.frame = frame};
    const __be16 type = mixTags(&flow);
    if (type == bpf_htons(ETH_P_MPLS_UC) || type == bpf_htons(ETH_P_MPLS_MC)) {
        mixLabels(&flow);
    } else if (type == bpf_htons(ETH_P_IP)) {
        mixIpv4(&flow);
    } else if (type == bpf_htons(ETH_P_IPV6)) {
        mixIpv6(&flow);
    } else {
        flow.at = 0;
        mixWords(&flow, 0, 3);
    }
    return finished(flow.hash);
}
