#include "Log/Log.h"

#include <atomic>
#include <mutex>
#include <spdlog/async.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/details/periodic_worker.h>
#include <spdlog/sinks/base_sink.h>
#include <thread>

#include "Log/LineLimits.h"
#include "Log/LineOutput.h"
#include "Posix/WithoutSignals.h"

namespace OvixLog {

namespace {

constexpr std::size_t mostQueued = 1024; ///< lines; then the oldest is lost
constexpr std::chrono::seconds betweenNotes{1};

} // namespace

/// Used by the log's thread alone, but for the counts.
class Log::Sink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
  public:
    Sink(const std::string& program, int descriptor) : program_(program), output_(descriptor) {}

    /// Where the lines come from, for those that were lost on the way; to be set first.
    void poolIs(spdlog::details::thread_pool& pool) noexcept { pool_ = &pool; }
    bool hasTaken(std::uint64_t lines) const { return taken_ + pool_->overrun_counter() >= lines; }
    std::uint64_t lost() const { return failed_ + pool_->overrun_counter(); }

  protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        if (const std::uint64_t lost = this->lost(); lost != noted_) {
            const bool isNoted = output_.write(
                fmt::format("{}: {} lines could not be written\n", program_, lost - noted_));
            noted_ = isNoted ? lost : noted_;
        }
        failed_ += output_.write({message.payload.data(), message.payload.size()}) ? 0 : 1;
        ++taken_;
    }
    void flush_() override {}

  private:
    std::string program_;
    LineOutput output_;
    std::atomic<std::uint64_t> taken_ = 0;
    std::atomic<std::uint64_t> failed_ = 0;
    std::uint64_t noted_ = 0; ///< of the lost ones
    spdlog::details::thread_pool* pool_ = nullptr;
};

struct Log::Parts {
    Parts(std::string name, int descriptor)
        : program(std::move(name)), sink(std::make_shared<Sink>(program, descriptor)),
          pool(std::make_shared<spdlog::details::thread_pool>(mostQueued, 1)),
          logger(std::make_shared<spdlog::async_logger>(
              program, sink, pool, spdlog::async_overflow_policy::overrun_oldest)) {
        sink->poolIs(*pool);
        logger->set_error_handler([](const std::string&) {});
    }

    void post(std::string_view line) {
        ++posted;
        logger->log(spdlog::level::info, spdlog::string_view_t(line.data(), line.size()));
    }
    void noteLeftOut() {
        const std::lock_guard lock(mutex);
        for (const LineLimits::LeftOut& kind : limits.takeLeftOut()) {
            post(fmt::format("{}: {}: {} more lines left out\n", program, kind.kind, kind.lines));
        }
    }

    std::string program;
    std::shared_ptr<Sink> sink;
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::async_logger> logger;
    std::mutex mutex;
    LineLimits limits;
    std::atomic<std::uint64_t> posted = 0;
    std::atomic<std::uint64_t> notAdmitted = 0;
    std::unique_ptr<spdlog::details::periodic_worker> notes; ///< first to end
};

Log::Log(std::string program, int descriptor) {
    const Posix::WithoutSignals here;
    parts_ = std::make_unique<Parts>(std::move(program), descriptor);
    parts_->notes = std::make_unique<spdlog::details::periodic_worker>(
        [parts = parts_.get()] { parts->noteLeftOut(); }, betweenNotes);
}

Log::~Log() {
    parts_->notes.reset();
    try {
        parts_->noteLeftOut();
    } catch (const std::exception&) {
        // There is nobody left to tell.
    }
    drain();
}

void Log::operator()(std::string_view kind, std::string_view line) noexcept {
    try {
        {
            const std::lock_guard lock(parts_->mutex);
            if (!parts_->limits.admit(kind)) {
                ++parts_->notAdmitted;
                return;
            }
        }
        parts_->post(fmt::format("{}: {}\n", parts_->program, line));
    } catch (const std::exception&) {
        ++parts_->notAdmitted; // no memory
    }
}

void Log::plain(std::string_view line) noexcept {
    try {
        parts_->post(fmt::format("{}\n", line));
    } catch (const std::exception&) {
        ++parts_->notAdmitted;
    }
}

void Log::drain() noexcept {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!parts_->sink->hasTaken(parts_->posted) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::uint64_t Log::leftOut() const noexcept {
    return parts_->notAdmitted + parts_->sink->lost();
}

} // namespace OvixLog
