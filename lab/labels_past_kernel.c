/* A zebra module (FRR 8.4) for a kernel without MPLS. Such a kernel refuses labels, and what it
 * refuses zebra shows to no later provider, so that the FPM would not hear of it. Two dataplane
 * providers, one ahead of the kernel's and one behind it: label routes are not for the kernel, and
 * IP routes go there without their labels, as plain IP routes, and get them back afterwards.
 *
 * To be loaded behind dplane_fpm_nl: what is loaded last registers first, and so has the labels
 * back before the FPM looks. The declarations are those that FRR's own headers give, as far as they
 * are used here. */
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

struct zebra_dplane_ctx;
struct zebra_dplane_provider;
struct thread_master;
struct hook;
struct nexthop;
struct nexthop_group {
    struct nexthop* first;
    char more[56]; /* Less in truth, and of no concern here. */
};

extern int dplane_provider_register(const char* name, int priority, int flags,
                                    int (*start)(struct zebra_dplane_provider*),
                                    int (*work)(struct zebra_dplane_provider*),
                                    int (*finish)(struct zebra_dplane_provider*, bool), void* data,
                                    struct zebra_dplane_provider** provider);
extern int dplane_provider_get_work_limit(const struct zebra_dplane_provider*);
extern struct zebra_dplane_ctx* dplane_provider_dequeue_in_ctx(struct zebra_dplane_provider*);
extern void dplane_provider_enqueue_out_ctx(struct zebra_dplane_provider*,
                                            struct zebra_dplane_ctx*);
extern void dplane_ctx_set_skip_kernel(struct zebra_dplane_ctx*);
extern int dplane_ctx_get_op(const struct zebra_dplane_ctx*);
extern const struct nexthop_group* dplane_ctx_get_ng(const struct zebra_dplane_ctx*);

extern struct nexthop* nexthop_next(const struct nexthop*);
extern void nexthop_del_labels(struct nexthop*);
extern void nexthops_free(struct nexthop* first);
extern void nexthop_group_copy(struct nexthop_group* to, const struct nexthop_group* from);

enum { before_kernel = 2, behind_kernel = 4 };
enum { route_install = 1, route_update = 2, label_install = 8, label_delete = 10 };

/* Next hops with their labels, while a copy without is at the kernel's. All providers work in one
 * thread. */
struct kept {
    struct kept* next;
    const struct zebra_dplane_ctx* work;
    struct nexthop* labelled;
};
static struct kept* all_kept;

static bool is_route(const struct zebra_dplane_ctx* work) {
    const int op = dplane_ctx_get_op(work);
    return op == route_install || op == route_update;
}

static bool is_label_route(const struct zebra_dplane_ctx* work) {
    const int op = dplane_ctx_get_op(work);
    return op >= label_install && op <= label_delete;
}

static struct nexthop_group* group_of(const struct zebra_dplane_ctx* work) {
    return (struct nexthop_group*)dplane_ctx_get_ng(work);
}

static void take_labels(struct zebra_dplane_ctx* work) {
    struct nexthop_group plain = {.first = NULL};
    struct nexthop_group* group = group_of(work);
    struct kept* kept = malloc(sizeof *kept);
    if (kept == NULL) {
        abort();
    }
    nexthop_group_copy(&plain, group);
    for (struct nexthop* hop = plain.first; hop != NULL; hop = nexthop_next(hop)) {
        nexthop_del_labels(hop);
    }
    *kept = (struct kept){all_kept, work, group->first};
    all_kept = kept;
    group->first = plain.first;
}

static void give_labels_back(struct zebra_dplane_ctx* work) {
    for (struct kept** place = &all_kept; *place != NULL; place = &(*place)->next) {
        struct kept* kept = *place;
        if (kept->work == work) {
            nexthops_free(group_of(work)->first);
            group_of(work)->first = kept->labelled;
            *place = kept->next;
            free(kept);
            return;
        }
    }
}

static void prepare(struct zebra_dplane_ctx* work) {
    if (is_label_route(work)) {
        dplane_ctx_set_skip_kernel(work);
    } else if (is_route(work)) {
        take_labels(work);
    }
}

static int pass_on(struct zebra_dplane_provider* provider,
                   void (*change)(struct zebra_dplane_ctx*)) {
    const int limit = dplane_provider_get_work_limit(provider);
    for (int i = 0; i < limit; i++) {
        struct zebra_dplane_ctx* work = dplane_provider_dequeue_in_ctx(provider);
        if (work == NULL) {
            break;
        }
        change(work);
        dplane_provider_enqueue_out_ctx(provider, work);
    }
    return 0;
}

static int pass_on_before(struct zebra_dplane_provider* provider) {
    return pass_on(provider, prepare);
}

static int pass_on_behind(struct zebra_dplane_provider* provider) {
    return pass_on(provider, give_labels_back);
}

/* FRR's loader finds the module through frr_module. */
struct module_info {
    const char *name, *version, *description;
    int (*init)(void);
};
struct module_runtime {
    struct module_runtime* next;
    struct module_info* info;
    void* handle;
    bool finished_loading;
    char *load_name, *load_arguments;
};
struct hook_entry {
    struct hook_entry* next;
    void *function, *argument;
    bool has_argument, entry_on_heap, entry_used;
    struct module_runtime* module;
    const char* function_name;
    int priority;
};

extern struct hook _hook_frr_late_init;
extern void _hook_register(struct hook*, struct hook_entry*, void* function, void* argument,
                           bool has_argument, struct module_runtime*, const char* function_name,
                           int priority);

static struct module_runtime this_module;
static struct hook_entry entry;

static int register_providers(struct thread_master* master) {
    (void)master;
    const int failed = dplane_provider_register("labels_taken", before_kernel, 0, NULL,
                                                pass_on_before, NULL, NULL, NULL);
    return failed ? failed
                  : dplane_provider_register("labels_given_back", behind_kernel, 0, NULL,
                                             pass_on_behind, NULL, NULL, NULL);
}

static int init(void) {
    _hook_register(&_hook_frr_late_init, &entry, (void*)register_providers, NULL, false,
                   &this_module, "register_providers", 1000);
    return 0;
}

static struct module_info info = {"labels_past_kernel", "1", "labels past the kernel", init};
static struct module_runtime this_module = {.info = &info};
struct module_runtime* frr_module = &this_module;
