#include "Tables/TablesWatch.h"

#include <cassert>
#include <exception>
#include <fmt/format.h>
#include <utility>

namespace OvixAgent {

TablesWatch::News TablesWatch::look(Clock::time_point now) {
    News news;
    if (now < next_) {
        return news;
    }
    next_ = now + every;
    using enum Tessel::TableMemory::Now;
    assert(tables_->tables().memory() != nullptr);
    switch (tables_->tables().memory()->now()) {
    case same:
        problemIs({}, news);
        break;
    case cutShort:
        problemIs("the file has been cut short; what has not been read of it yet is lost", news);
        break;
    case removed:
        problemIs("the file has been removed; forwarding goes on by what it held", news);
        break;
    case replaced:
        goOver(news);
        break;
    }
    reportDamage(news);
    return news;
}

void TablesWatch::problemIs(std::string problem, News& news) {
    if (problem == problem_) {
        return;
    }
    problem_ = std::move(problem);
    news.push_back(fmt::format("tables \"{}\": {}", tables_->tables().name(),
                               problem_.empty() ? "the file is whole again" : problem_));
}

/// The file may be being made: then it takes another look.
void TablesWatch::goOver(News& news) {
    const std::string name = tables_->tables().name();
    try {
        tables_->memoryIs(Tessel::TableMemory::sharedForReading(name));
        problem_.clear();
        news.push_back(fmt::format("tables \"{}\": gone over to the new file, generation {}", name,
                                   tables_->tables().generation()));
    } catch (const std::exception& refused) {
        problemIs(fmt::format("another file has the name, and cannot be used: {}; forwarding goes "
                              "on by what the former one held",
                              refused.what()),
                  news);
    }
}

void TablesWatch::reportDamage(News& news) {
    if (const std::uint64_t now = tables_->corruptionsDetected(); now > corruptions_) {
        corruptions_ = now;
        news.push_back(fmt::format("tables \"{}\": damage met {} times, last: {}",
                                   tables_->tables().name(), now, tables_->lastCorruption()));
    }
}

} // namespace OvixAgent
