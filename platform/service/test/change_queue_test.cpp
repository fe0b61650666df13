#include "change_queue.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/fake_logger.hpp"

namespace xpon::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

using Fields = std::vector<std::uint32_t>;

ChangeQueue::List list(Fields const& fields, std::uint32_t sequence = 0) {
    ChangeQueue::List changes;
    for (auto const field : fields) {
        changes.push_back({field, 0, sequence});
    }
    return changes;
}

/// Plays the service: handles what is due, at the pace of the test.
struct ChangeQueueTest : testing::Test {
    test::FakeLogger logger;
    ChangeQueue queue{logger};
    TimePoint now{1000h};
    Fields bad; // a list that holds one of these fails
    core::ErrorPayload error{core::Error::CommonError};

    Fields next_fields() {
        Fields fields;
        auto const& list = queue.next(now);
        fields.reserve(list.size());
        for (auto const& change : list) {
            fields.push_back(change.field_id);
        }
        return fields;
    }

    /// Handles everything that is due now; what was handed out, in order.
    std::vector<Fields> handle_all() {
        std::vector<Fields> handled;
        while (queue.due() <= now) {
            handled.push_back(next_fields());
            bool const fails = std::find_first_of(handled.back().begin(), handled.back().end(), bad.begin(),
                                                  bad.end()) != handled.back().end();
            if (!fails) {
                queue.succeeded();
            } else {
                queue.failed(error, now);
            }
        }
        return handled;
    }
};

TEST_F(ChangeQueueTest, HasNothingAtFirst) {
    EXPECT_EQ(queue.due(), never);
    EXPECT_THAT(next_fields(), IsEmpty());
}

TEST_F(ChangeQueueTest, AListThatSucceedsIsDeliveredOnce) {
    queue.add(list({52, 58, 60}));
    EXPECT_EQ(queue.due(), at_once);
    EXPECT_THAT(handle_all(), ElementsAre(Fields{52, 58, 60}));
    EXPECT_EQ(queue.due(), never);
}

TEST_F(ChangeQueueTest, AFailedListIsDeliveredFieldByFieldInOrderAndAllButTheBadOneArrive) {
    bad = {58};
    queue.add(list({52, 58, 55, 60}));
    EXPECT_THAT(handle_all(),
                ElementsAre(Fields{52, 58, 55, 60}, Fields{52}, Fields{58}, Fields{55}, Fields{60}));
    EXPECT_EQ(queue.due(), now + 1s);
}

TEST_F(ChangeQueueTest, ANewListEndsTheWaitOfFieldsThatCouldNotBeRead) {
    bad = {52, 58};
    queue.add(list({52}));
    handle_all();
    error = core::ErrorPayload{core::Error::ErrorCApi};
    queue.add(list({58}));
    handle_all();
    queue.add(list({60}));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{60}, Fields{58})) << "once for each list";
    EXPECT_EQ(queue.due(), now + 1s) << "52 waits as before";
    bad = {};
    now += 1s;
    EXPECT_THAT(handle_all(), ElementsAre(Fields{52}));
    EXPECT_EQ(queue.due(), now + 1s) << "58 after twice the wait";
}

TEST_F(ChangeQueueTest, AListThatFailedOnlyOnceArrivesFieldByFieldWithoutRetries) {
    queue.add(list({52, 58}));
    next_fields();
    queue.failed(error, now);
    EXPECT_THAT(handle_all(), ElementsAre(Fields{52}, Fields{58}));
    EXPECT_EQ(queue.due(), never);
    EXPECT_THAT(logger.texts(), ElementsAre(StartsWith("config_change of 2 fields failed: "),
                                            "config_change of 2 fields works again"));
}

TEST_F(ChangeQueueTest, AListOfOneThatFailsIsRetriedAfterASecondAndNotAtOnce) {
    bad = {71};
    queue.add(list({71}));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{71}));
    EXPECT_EQ(queue.due(), now + 1s);
    now += 1s - 1ns;
    EXPECT_THAT(next_fields(), IsEmpty());
    now += 1ns;
    EXPECT_THAT(handle_all(), ElementsAre(Fields{71}));
    EXPECT_EQ(queue.due(), now + 2s);
}

TEST_F(ChangeQueueTest, ARetryThatSucceedsEndsTheMatter) {
    bad = {71};
    queue.add(list({71}));
    handle_all();
    bad.clear();
    now += 1s;
    EXPECT_THAT(handle_all(), ElementsAre(Fields{71}));
    EXPECT_EQ(queue.due(), never);
    bad = {71};
    queue.add(list({71}));
    handle_all();
    EXPECT_EQ(queue.due(), now + 1s) << "a new failure starts anew";
}

TEST_F(ChangeQueueTest, AFieldThatFailsForTwoDaysIsRetriedEveryHourAndLoggedOnce) {
    bad = {9};
    queue.add(list({9}));
    handle_all();
    auto const end = now + 48h;
    for (auto wait = 1s; wait <= 512s; wait *= 2) {
        EXPECT_EQ(queue.due(), now + wait);
        now = queue.due();
        EXPECT_THAT(handle_all(), ElementsAre(Fields{9}));
    }
    while (now < end) {
        EXPECT_EQ(queue.due(), now + 1h);
        now = queue.due();
        EXPECT_THAT(handle_all(), ElementsAre(Fields{9}));
    }
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of field 9 failed: Error: CommonError"));
    EXPECT_EQ(logger.lines().at(0).level, core::log_failure);

    bad.clear();
    now = queue.due();
    EXPECT_THAT(handle_all(), ElementsAre(Fields{9}));
    EXPECT_EQ(queue.due(), never);
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of field 9 failed: Error: CommonError",
                                            "config_change of field 9 works again"));
    EXPECT_EQ(logger.lines().at(1).level, core::log_routine);
}

TEST_F(ChangeQueueTest, EachReasonIsLoggedOncePerFieldEvenAfterANewDelivery) {
    bad = {58};
    for (auto const code : {core::Error::CommonError, core::Error::CommonError, core::Error::ErrorCApi}) {
        error = core::ErrorPayload{code};
        queue.add(list({58}));
        handle_all();
    }
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of module.alarmmgr failed: Error: CommonError",
                                            "config_change of module.alarmmgr failed: Error: ErrorCApi"));
}

TEST_F(ChangeQueueTest, FieldsWaitIndependentlyAndTheLongestDueComesFirst) {
    bad = {58, 60, 71};
    for (auto const field : {71U, 58U}) { // together
        queue.add(list({field}));
    }
    handle_all();
    now += 200ms;
    queue.add(list({60}));
    handle_all();
    EXPECT_EQ(queue.due(), now + 800ms);
    now += 5s;
    EXPECT_THAT(handle_all(), ElementsAre(Fields{71}, Fields{58}, Fields{60}));
    EXPECT_EQ(queue.due(), now + 2s) << "the wait begins when the retry has failed";
}

TEST_F(ChangeQueueTest, AFieldThatAlwaysFailsDelaysNoOther) {
    bad = {9};
    queue.add(list({9, 52}));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{9, 52}, Fields{9}, Fields{52}));
    for (int retry = 0; retry < 20; ++retry) {
        now = queue.due();
        queue.add(list({52, 58}));
        EXPECT_THAT(handle_all(), ElementsAre(Fields{52, 58}, Fields{9}));
    }
}

TEST_F(ChangeQueueTest, ANewDeliveryThatSucceedsWithOthersEndsTheFailure) {
    bad = {71};
    queue.add(list({71}));
    handle_all();
    bad.clear();
    queue.add(list({52, 71}));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{52, 71}));
    EXPECT_EQ(queue.due(), never);
    EXPECT_THAT(logger.texts(), ElementsAre("config_change of module.sessionmgr failed: Error: CommonError",
                                            "config_change of module.sessionmgr works again"));
}

TEST_F(ChangeQueueTest, ANewDeliveryTakesOverTheRetryOfItsFields) {
    bad = {58, 71};
    queue.add(list({58}));
    queue.add(list({71}));
    handle_all();
    now += 1s;
    handle_all(); // both failed once more: 2 s now

    bad = {71};
    queue.add(list({58}, 9));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{58}));
    now += 2s;
    EXPECT_THAT(handle_all(), ElementsAre(Fields{71}));
    EXPECT_EQ(queue.due(), now + 4s);
}

TEST_F(ChangeQueueTest, ANewDeliveryThatFailsRestartsTheSchedule) {
    bad = {71};
    queue.add(list({71}));
    handle_all();
    now += 1s;
    handle_all();
    EXPECT_EQ(queue.due(), now + 2s);
    queue.add(list({52, 71}, 9));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{52, 71}, Fields{52}, Fields{71}));
    EXPECT_EQ(queue.due(), now + 1s);
    now += 1s;
    EXPECT_EQ(queue.next(now).at(0).sequence, 9U);
}

TEST_F(ChangeQueueTest, TheFieldsOfAFailedListGoBeforeTheNextList) {
    bad = {58};
    queue.add(list({58, 59}));
    queue.add(list({60, 61}));
    EXPECT_THAT(handle_all(), ElementsAre(Fields{58, 59}, Fields{58}, Fields{59}, Fields{60, 61}));
}

TEST_F(ChangeQueueTest, ChangesKeepTheirRowAndSequence) {
    queue.add({{58, 3, 41}, {59, 0, 42}});
    auto const& both = queue.next(now);
    ASSERT_EQ(both.size(), 2U);
    EXPECT_EQ(both[0].row, 3U);
    EXPECT_EQ(both[1].sequence, 42U);
    queue.failed(error, now);
    EXPECT_EQ(queue.next(now).at(0).sequence, 41U);
    queue.failed(error, now);
    queue.next(now);
    queue.succeeded();
    EXPECT_EQ(queue.next(now + 1s).at(0).row, 3U);
}

} // namespace
} // namespace xpon::service
