#include "broker/last_answers.hpp"

#include <gmock/gmock.h>

#include "test/value_of.hpp"

namespace xpon::ipc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Address asker{77};

std::vector<std::byte> answer(std::uint32_t module, std::uint32_t status) {
    return encode({everybody, file_changed_reply, 0}, payload_of(FileAnswer{module, status}));
}

std::vector<std::byte> query() {
    return encode({asker, last_answers_query, last_answers_reply}, payload_of(LastAnswersQuery{asker}));
}

std::vector<LastAnswer> remembered(LastAnswers& answers) {
    auto const message = value_of(decode(value_of(answers.take(query(), 0))));
    EXPECT_EQ(message.header, (Header{asker, last_answers_reply, 0}));
    return value_of(records_in<LastAnswer>(message.payload));
}

TEST(LastAnswers, WithoutAnyAnswerTheReportIsEmpty) {
    LastAnswers answers;
    EXPECT_THAT(remembered(answers), IsEmpty());
}

TEST(LastAnswers, TheReportHoldsEachModulesLastAnswerByModule) {
    LastAnswers answers;
    EXPECT_EQ(answers.take(answer(38, 0), 100), std::nullopt);
    EXPECT_EQ(answers.take(answer(9, 0), 101), std::nullopt);
    EXPECT_EQ(answers.take(answer(38, ENOENT), 102), std::nullopt);
    EXPECT_THAT(remembered(answers), ElementsAre(LastAnswer{9, 0, 101}, LastAnswer{38, ENOENT, 102}));
}

TEST(LastAnswers, TheReportCarriesTheEventThatTheQueryNames) {
    LastAnswers answers;
    auto const report =
        answers.take(encode({everybody, last_answers_query, 4711}, payload_of(LastAnswersQuery{asker})), 0);
    EXPECT_EQ(report, encode({asker, 4711, 0}, {}));
}

std::vector<std::byte> read(std::uint32_t module, std::uint64_t changed) {
    return encode({everybody, file_read_event, 0},
                  payload_of(FileRead{.module = module, .changed = changed}));
}

TEST(LastAnswers, AModuleThatSaysWhatItReadsAnswersAboutThatAndNothingNewer) {
    LastAnswers answers;
    EXPECT_EQ(answers.take(read(9, 50), 100), std::nullopt);
    EXPECT_THAT(remembered(answers), IsEmpty());
    answers.take(answer(38, 0), 101);
    answers.take(answer(9, EINVAL), 102);
    EXPECT_THAT(remembered(answers), ElementsAre(LastAnswer{9, EINVAL, 50}, LastAnswer{38, 0, 101}));
    answers.take(answer(9, 0), 103); // of another answer nothing is known
    EXPECT_THAT(remembered(answers), ElementsAre(LastAnswer{9, 0, 103}, LastAnswer{38, 0, 101}));
}

TEST(LastAnswers, AFloodOfReadsIsBounded) {
    LastAnswers answers;
    for (std::uint32_t module = 0; module <= LastAnswers::capacity; ++module) {
        answers.take(read(module, 7), 1);
    }
    answers.take(read(3, 8), 1); // those that are known may go on
    answers.take(answer(3, 0), 100);
    answers.take(answer(LastAnswers::capacity, 0), 101);
    EXPECT_THAT(remembered(answers),
                ElementsAre(LastAnswer{3, 0, 8}, LastAnswer{LastAnswers::capacity, 0, 101}));
}

TEST(LastAnswers, AnAnswerIsRememberedWhoeverItIsFor) {
    LastAnswers answers;
    answers.take(encode({{5}, file_changed_reply, 9}, payload_of(FileAnswer{1, 2})), 3);
    EXPECT_THAT(remembered(answers), ElementsAre(LastAnswer{1, 2, 3}));
}

TEST(LastAnswers, AnythingButAnswersAndQueriesChangesNothing) {
    LastAnswers answers;
    answers.take(answer(1, 2), 3);
    for (std::size_t length = 0; length <= 64; ++length) {
        std::vector<std::byte> const payload(length);
        for (std::uint16_t const event :
             {file_changed_event, file_changed_reply, last_answers_query, file_read_event}) {
            auto const size_of_event = event == file_changed_reply ? sizeof(FileAnswer)
                                       : event == file_read_event  ? sizeof(FileRead)
                                                                   : sizeof(LastAnswersQuery);
            if (event == file_changed_event || length != size_of_event) {
                EXPECT_EQ(answers.take(encode({everybody, event, 1}, payload), 4), std::nullopt) << length;
            }
        }
        EXPECT_EQ(answers.take(std::span{payload}.first(std::min<std::size_t>(length, 7)), 4), std::nullopt);
    }
    EXPECT_THAT(remembered(answers), ElementsAre(LastAnswer{1, 2, 3}));
}

TEST(LastAnswers, AQueryThatExpectsNoReplyGetsNone) {
    LastAnswers answers;
    EXPECT_EQ(answers.take(encode({asker, last_answers_query, 0}, payload_of(LastAnswersQuery{asker})), 0),
              std::nullopt);
}

TEST(LastAnswers, AReportIsNeverTakenForAQueryOrAnAnswer) {
    for (std::uint16_t const event : {last_answers_query, file_changed_reply}) {
        LastAnswers answers;
        for (std::uint32_t module = 0; module < 3; ++module) {
            auto const report = value_of(answers.take(
                encode({asker, last_answers_query, event}, payload_of(LastAnswersQuery{asker})), 0));
            EXPECT_EQ(answers.take(report, 0), std::nullopt);
            EXPECT_EQ(remembered(answers).size(), module);
            answers.take(answer(module, 0), 0);
        }
    }
}

TEST(LastAnswers, WhenThereAreTooManyTheOldestIsForgotten) {
    LastAnswers answers;
    for (std::uint32_t module = 0; module <= LastAnswers::capacity; ++module) {
        answers.take(answer(module, 0), 1000 + (module == 5 ? 0 : module + 1));
    }
    auto const left = remembered(answers);
    EXPECT_EQ(left.size(), LastAnswers::capacity);
    EXPECT_THAT(left, testing::Not(testing::Contains(testing::Field(&LastAnswer::module, 5U))));
}

} // namespace
} // namespace xpon::ipc
