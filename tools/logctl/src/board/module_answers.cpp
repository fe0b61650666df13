#include "board/module_answers.hpp"

#include <filesystem>

#include <unistd.h>

#include "core/failure.hpp"
#include "waiting.hpp"
#include "xpon/ipc/zmq_ipc.hpp"

namespace xpon::logctl {

namespace {

using core::Error;
using core::fail;
using Deadline = std::chrono::steady_clock::time_point;

std::optional<ipc::Message> next_message(ipc::IIpc& bus, Deadline end) {
    for (;;) {
        auto message = bus.receive();
        if (message.has_error() || message.value()) {
            return message.has_error() ? std::nullopt : std::move(message).value();
        }
        if (!first_readable({bus.receive_fd()}, end)) {
            return std::nullopt;
        }
    }
}

std::optional<ipc::Message> wait_for(ipc::IIpc& bus, std::uint16_t event, Deadline end) {
    auto message = next_message(bus, end);
    while (message && message->header.event != event) {
        message = next_message(bus, end);
    }
    return message;
}

} // namespace

core::Result<ModuleAnswers> ask_broker(Deadline end) {
    std::filesystem::path const socket = std::filesystem::path{ipc::default_folder} / "publish";
    if (access(socket.c_str(), R_OK | W_OK) != 0) {
        return errno == EACCES ? fail(Error::NoAccess, "needs root or the group xpon")
                               : fail(Error::CommonError, "no message bus in {}", ipc::default_folder);
    }
    std::shared_ptr<ipc::IIpc> bus;
    try {
        bus = ipc::make_zmq_ipc(ipc::any_address, "logctl");
    } catch (std::exception const& exception) {
        return fail(Error::CommonError, "no endpoint on the message bus: {}", exception.what());
    }
    if (!wait_for(*bus, ipc::connected_event, end)) {
        return fail(Error::CommonError, "the broker does not answer");
    }
    OUTCOME_TRY(bus->send({ipc::everybody, ipc::last_answers_query, ipc::last_answers_reply},
                          ipc::payload_of(ipc::LastAnswersQuery{bus->address()})));
    auto const reply = wait_for(*bus, ipc::last_answers_reply, end);
    auto const records = reply ? ipc::records_in<ipc::LastAnswer>(reply->payload) : std::nullopt;
    if (!records) {
        return fail(Error::CommonError, "the broker does not answer");
    }
    ModuleAnswers answers;
    for (auto const& answer : *records) {
        answers[answer.module] = answer;
    }
    return answers;
}

} // namespace xpon::logctl
