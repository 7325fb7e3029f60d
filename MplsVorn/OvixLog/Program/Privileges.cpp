#include "Program/Privileges.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <sys/capability.h>
#include <sys/prctl.h>
#include <system_error>

namespace OvixLog {

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

struct Free {
    void operator()(cap_t capabilities) const noexcept { cap_free(capabilities); }
};
using Capabilities = std::unique_ptr<std::remove_pointer_t<cap_t>, Free>;

bool has(const Capabilities& all, cap_flag_t set, cap_value_t which) {
    cap_flag_value_t value = CAP_CLEAR;
    return cap_get_flag(all.get(), which, set, &value) == 0 && value == CAP_SET;
}

void drop(const Capabilities& all, cap_value_t which, bool mayDropBound) {
    for (const cap_flag_t set : {CAP_EFFECTIVE, CAP_PERMITTED, CAP_INHERITABLE}) {
        cap_set_flag(all.get(), set, 1, &which, CAP_CLEAR);
    }
    if (cap_get_ambient(which) == CAP_SET && cap_set_ambient(which, CAP_CLEAR) != 0) {
        fail("giving up an ambient capability");
    }
    if (mayDropBound && cap_get_bound(which) == CAP_SET && cap_drop_bound(which) != 0) {
        fail("giving up a capability of the bounding set");
    }
}

} // namespace

void keepCapabilities(std::initializer_list<int> kept) {
    const Capabilities all(cap_get_proc());
    if (!all) {
        fail("asking for capabilities");
    }
    const bool mayDropBound = has(all, CAP_EFFECTIVE, CAP_SETPCAP);
    for (cap_value_t each = 0; each < cap_max_bits(); ++each) {
        if (std::find(kept.begin(), kept.end(), each) == kept.end()) {
            drop(all, each, mayDropBound);
        }
    }
    if (cap_set_proc(all.get()) != 0) {
        fail("giving up capabilities");
    }
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        fail("giving up new privileges");
    }
}

} // namespace OvixLog
