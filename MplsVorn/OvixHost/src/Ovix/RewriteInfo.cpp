#include "Ovix/RewriteInfo.h"

template class Tessel::Slabbed<Ovix::RewriteInfos>;

namespace Ovix {

void RewriteInfos::copyFrom(const Ptr<RewriteInfos>& other) {
    for (const Ptr<RewriteInfo>& info : other->rewrites_) {
        rewrites_.push(info);
    }
    for (const Ptr<CounterActionInfo>& info : other->counterActions_) {
        counterActions_.push(info);
    }
}

} // namespace Ovix
