#include <map>
#include <thread>

#include "LocalTables.h"
#include "Numbered.h"

namespace ThreadsTest {

namespace {

using namespace ShmTesting;
using std::chrono::milliseconds;
using Tessel::TableHeap;

/// One writer and two readers, a thread each, over memory of this process. What they share is that
/// memory alone.
class Threads : public testing::TestWithParam<milliseconds> {
  protected:
    static constexpr std::uint32_t routes = 300;
    static constexpr std::uint32_t batches = 150;

    Threads() { Tessel::Threading::multiThreadedIs(true); }
    ~Threads() override { Tessel::Threading::multiThreadedIs(false); }

    /// Runs `write` beside two of `read(reader, done)`.
    template <typename Write, typename Read>
    void run(Write&& write, Read&& read) {
        std::atomic<bool> done = false;
        std::vector<std::thread> readers;
        for (int i = 0; i < 2; ++i) {
            readers.emplace_back([&] {
                read(Tessel::make<Tessel::TableReader>("tables",
                                                       std::as_bytes(publisher.tables().memory())),
                     done);
            });
        }
        write();
        done = true;
        for (std::thread& reader : readers) {
            reader.join();
        }
    }

    Mpls::TablePublisher publisher{Tessel::TableMemory::ofProcess(std::size_t{128} << 20U),
                                   GetParam()};
};

TEST_P(Threads, AReaderSeesNothingButWholeBatches) {
    run(
        [&] {
            for (std::uint32_t number = 1; number <= batches; ++number) {
                NumberedRoutes(routes).write(publisher, number);
                publisher.commit();
            }
        },
        [&](const Ptr<Tessel::TableReader>& tables, const std::atomic<bool>& done) {
            CheckingReader reader(tables, routes);
            while (!done && !HasFailure()) {
                reader.check();
            }
            reader.check();
            EXPECT_EQ(reader.last(), batches);
            if (GetParam() != milliseconds(0)) {
                EXPECT_GT(reader.checks(), 1U);
            }
        });
}

/// Keeps what is reported, as one that counts per route would.
class Book : public Tessel::Subscriber {
  public:
    explicit Book(const Mpls::PublishedTables& tables) : tables_(&tables) {}

    void attributeChanged(const Tessel::Entity&, Tessel::AttrId, std::uint64_t changed) override {
        const std::uint32_t label = Mpls::RouteKey::fromValue(changed).topLabel().value();
        const std::uint32_t number = NumberedRoutes::numberOf(*tables_, label);
        if (number == 0) {
            numbers.erase(label);
        } else {
            numbers[label] = number;
        }
    }

    std::map<std::uint32_t, std::uint32_t> numbers; ///< by label

  private:
    const Mpls::PublishedTables* tables_;
};

TEST_P(Threads, EveryChangeIsReportedHoweverFastTheyCome) {
    std::map<std::uint32_t, std::uint32_t> expected;
    std::atomic<int> subscribers = 0;
    const auto routeIs = [&](std::uint32_t label, std::uint32_t number) {
        auto& lfib = publisher.lfib(Mpls::TableId::transitLfib);
        if (number == 0) {
            lfib.routeDel(TableTesting::key(label));
            expected.erase(label);
            return;
        }
        std::vector<Mpls::WeightedRecord> vias(1 + number % 3, TableTesting::swapVia());
        for (Mpls::WeightedRecord& via : vias) {
            EXPECT_TRUE(via.via.labelsIs(std::vector<std::uint8_t>{
                0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}));
        }
        lfib.routeIs(TableTesting::key(label), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                     vias);
        expected[label] = number;
    };
    run(
        [&] {
            while (subscribers < 2) {
                std::this_thread::yield();
            }
            Random random;
            for (std::uint32_t number = 1; number <= 2000; ++number) {
                routeIs(16, number); // one page changes all the time, and others now and then
                if (number % 4 == 0) {
                    routeIs(16 + random.below(60) * 1024, random.below(3) == 0 ? 0 : number);
                }
                publisher.commit();
            }
        },
        [&](const Ptr<Tessel::TableReader>& reader, const std::atomic<bool>& done) {
            Mpls::PublishedTables tables(reader);
            Book book(tables);
            tables.lfib(Mpls::TableId::transitLfib)->subscribe(book);
            tables.noticeSubscribers();
            ++subscribers;
            bool last = false;
            while (!last) {
                last = done;
                tables.refresh();
            }
            TestSupport::refreshWholly(tables);
            EXPECT_TRUE(book.numbers == expected);
            EXPECT_EQ(tables.corruptionsDetected(), 0U);
            tables.lfib(Mpls::TableId::transitLfib)->unsubscribe(book);
        });
}

INSTANTIATE_TEST_SUITE_P(Kept, Threads, testing::Values(milliseconds(0), TableHeap::keptFor),
                         [](const auto& kept) {
                             return kept.param == milliseconds(0) ? "ForNoTime" : "ForAWhile";
                         });

} // namespace

} // namespace ThreadsTest
