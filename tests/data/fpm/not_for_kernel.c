/* A zebra module (FRR 8.4): a dataplane provider ahead of the kernel's that marks routes and label
 * routes as not for the kernel. A kernel without MPLS refuses labels, and what it refuses zebra shows to
 * no later provider. For recording only. The declarations are those that FRR's own headers give, as far
 * as they are used here. */
#include <stdbool.h>
#include <stddef.h>

struct zebra_dplane_ctx;
struct zebra_dplane_provider;
struct thread_master;
struct hook;

extern int dplane_provider_register(const char* name, int priority, int flags,
                                    int (*start)(struct zebra_dplane_provider*),
                                    int (*work)(struct zebra_dplane_provider*),
                                    int (*finish)(struct zebra_dplane_provider*, bool),
                                    void* data, struct zebra_dplane_provider** provider);
extern int dplane_provider_get_work_limit(const struct zebra_dplane_provider*);
extern struct zebra_dplane_ctx* dplane_provider_dequeue_in_ctx(struct zebra_dplane_provider*);
extern void dplane_provider_enqueue_out_ctx(struct zebra_dplane_provider*,
                                            struct zebra_dplane_ctx*);
extern void dplane_ctx_set_skip_kernel(struct zebra_dplane_ctx*);
extern int dplane_ctx_get_op(const struct zebra_dplane_ctx*);

enum { before_kernel = 2, route_install = 1, route_delete = 3, label_install = 8, label_delete = 10 };

static int pass_on(struct zebra_dplane_provider* provider) {
    const int limit = dplane_provider_get_work_limit(provider);
    for (int i = 0; i < limit; i++) {
        struct zebra_dplane_ctx* work = dplane_provider_dequeue_in_ctx(provider);
        if (work == NULL) {
            break;
        }
        const int op = dplane_ctx_get_op(work);
        if ((op >= route_install && op <= route_delete) ||
            (op >= label_install && op <= label_delete)) {
            dplane_ctx_set_skip_kernel(work);
        }
        dplane_provider_enqueue_out_ctx(provider, work);
    }
    return 0;
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

static int register_provider(struct thread_master* master) {
    (void)master;
    return dplane_provider_register("not_for_kernel", before_kernel, 0, NULL, pass_on, NULL, NULL,
                                    NULL);
}

static int init(void) {
    _hook_register(&_hook_frr_late_init, &entry, (void*)register_provider, NULL, false,
                   &this_module, "register_provider", 1000);
    return 0;
}

static struct module_info info = {"not_for_kernel", "1", "labels past the kernel", init};
static struct module_runtime this_module = {.info = &info};
struct module_runtime* frr_module = &this_module;
