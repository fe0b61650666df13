#include "broker/last_answers.hpp"

#include <algorithm>

namespace xpon::ipc {

std::optional<std::vector<std::byte>> LastAnswers::take(std::span<std::byte const> frame,
                                                        std::uint64_t time) {
    auto const message = decode(frame);
    if (!message) {
        return std::nullopt;
    }
    auto const& [header, payload] = *message;
    if (header.event == file_changed_reply) {
        if (auto const answer = record_in<FileAnswer>(payload); answer && !exact.contains(answer->module)) {
            remember({answer->module, answer->status, time});
        }
    } else if (header.event == file_known_event) {
        if (auto const known = record_in<FileKnown>(payload)) {
            remember({known->module, known->status, known->changed});
            exact.insert(known->module);
        }
    } else if (header.event == last_answers_query && header.reply != 0) {
        if (auto const query = record_in<LastAnswersQuery>(payload)) {
            return report(*query, header.reply);
        }
    }
    return std::nullopt;
}

void LastAnswers::remember(LastAnswer const& answer) {
    answers[answer.module] = answer;
    if (answers.size() > capacity) {
        auto const oldest =
            std::ranges::min_element(answers, {}, [](auto const& entry) { return entry.second.time; });
        exact.erase(oldest->first);
        answers.erase(oldest);
    }
}

std::vector<std::byte> LastAnswers::report(LastAnswersQuery const& query, std::uint16_t event) const {
    std::vector<LastAnswer> all;
    all.reserve(answers.size());
    for (auto const& [module, answer] : answers) {
        all.push_back(answer);
    }
    return encode({query.asker, event, 0}, payload_of_all(std::span<LastAnswer const>{all}));
}

} // namespace xpon::ipc
