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
        if (auto const answer = record_in<FileAnswer>(payload)) {
            remember(*answer, time);
        }
    } else if (header.event == file_read_event) {
        if (auto const read = record_in<FileRead>(payload)) {
            announce(*read);
        }
    } else if (header.event == last_answers_query && header.reply != 0) {
        if (auto const query = record_in<LastAnswersQuery>(payload)) {
            return report(*query, header.reply);
        }
    }
    return std::nullopt;
}

void LastAnswers::announce(FileRead const& read) {
    if (changes.size() < capacity || changes.contains(read.module)) {
        changes[read.module] = read.changed;
    }
}

void LastAnswers::remember(FileAnswer const& answer, std::uint64_t time) {
    auto const read = changes.extract(answer.module);
    answers[answer.module] = {answer.module, answer.status, read ? read.mapped() : time};
    if (answers.size() > capacity) {
        answers.erase(
            std::ranges::min_element(answers, {}, [](auto const& entry) { return entry.second.time; }));
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
