#include "Ovix/RewriteInfo.h"

template class Tessel::Slabbed<Ovix::RewriteInfos>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RewriteInfo>>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::CounterActionInfo>>;
