#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <sys/eventfd.h>
#include <unistd.h>

#include "core/unique_fd.hpp"
#include "kit/fake_ipc.hpp"
#include "kit/wait_until.hpp"
#include "xpon/cfgdb/change_feed.hpp"
#include "xpon/service/service_base.hpp"

namespace xpon::service {

/// What happened, in order, from whatever thread.
class Journal {
  public:
    void add(std::string entry) {
        std::lock_guard const lock{mutex};
        written.push_back(std::move(entry));
        changed.notify_all();
    }

    std::vector<std::string> entries() const {
        std::lock_guard const lock{mutex};
        return written;
    }

    /// Waits until there are this many entries; false if that takes too long.
    bool wait_for(std::size_t count) {
        std::unique_lock lock{mutex};
        return changed.wait_for(lock, test::default_deadline, [&] { return written.size() >= count; });
    }

  private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> written; // guarded by mutex
};

/// Writes down what it is told, and answers as the test wants.
class FakeService : public ServiceBase {
  public:
    explicit FakeService(Journal& events)
      : journal{events} {}

    core::Result<void> run(ServiceCtx const& ctx) override { return run_as ? run_as(ctx) : serve(ctx); }
    core::Result<void> stop(ServiceCtx const& ctx) override {
        OUTCOME_TRY(happened("stop"));
        return ServiceBase::stop(ctx);
    }
    core::Result<void> master_change(ServiceCtx const& /*ctx*/) override { return happened("master_change"); }
    core::Result<void> sync(ServiceCtx const& /*ctx*/) override { return happened("sync"); }
    core::Result<void> config_change(ServiceCtx const& /*ctx*/,
                                     std::vector<Config_change> const& changes) override {
        std::string event = "config_change";
        for (auto const& change : changes) {
            event += " " + std::to_string(change.field_id);
        }
        return happened(event);
    }
    bool is_required_master_change_event() override { return wants_master_change(); }

    core::Result<void> serve(ServiceCtx const& ctx) { return ServiceBase::run(ctx); }

    std::function<core::Result<void>(ServiceCtx const&)> run_as; // instead of serving
    std::function<core::Result<void>(std::string const& event)> answer = [](auto const&) {
        return core::success();
    };
    std::function<bool()> wants_master_change = [] { return false; };

  private:
    core::Result<void> happened(std::string const& event) {
        journal.add(event);
        return answer(event);
    }

    Journal& journal;
};

/// Answers in the order of what was pushed; after that there is nothing. Its descriptor becomes readable with
/// every push and quiet with every question, whatever is left: as edge-triggered as a bus may be.
template <class T>
class FakeSource {
  public:
    void push(core::Result<T> answer) {
        std::lock_guard const lock{mutex};
        answers.push_back(std::move(answer));
        announce();
    }

    void announce() const {
        std::uint64_t const one = 1;
        std::ignore = ::write(descriptor.get(), &one, sizeof one);
    }

    void fall_silent() const {
        std::uint64_t count = 0;
        std::ignore = ::read(descriptor.get(), &count, sizeof count);
    }

    core::Result<T> ask() {
        std::lock_guard const lock{mutex};
        ++questions;
        fall_silent();
        if (answers.empty()) {
            return T{};
        }
        auto answer = std::move(answers.front());
        answers.pop_front();
        return answer;
    }

    int fd() const { return descriptor.get(); }

    int asked() const {
        std::lock_guard const lock{mutex};
        return questions;
    }

  private:
    mutable std::mutex mutex;
    std::deque<core::Result<T>> answers; // guarded by mutex
    int questions = 0;                   // guarded by mutex
    core::UniqueFd descriptor{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

/// A bus on which arrives what the test pushes.
class FakeBus : public test::FakeIpc {
  public:
    core::Result<std::optional<ipc::Message>> receive() override { return source.ask(); }
    int receive_fd() const override { return source.fd(); }

    void push(std::uint16_t event) { source.push(ipc::Message{{ipc::everybody, event, 0}, {}}); }

    FakeSource<std::optional<ipc::Message>> source;
};

/// A bus that never runs dry, of events that mean nothing here.
class FloodedBus : public FakeBus {
  public:
    core::Result<std::optional<ipc::Message>> receive() override {
        source.announce();
        return ipc::Message{{ipc::everybody, 12500, 12501}, {}};
    }
};

class FakeFeed : public cfgdb::ChangeFeed {
  public:
    int fd() const override { return source.fd(); }
    core::Result<std::vector<Config_change>> next() override { return source.ask(); }

    void push(std::vector<std::uint32_t> const& fields) {
        std::vector<Config_change> list;
        list.reserve(fields.size());
        for (auto const field : fields) {
            list.push_back({field, 0, 0});
        }
        source.push(std::move(list));
    }

    FakeSource<std::vector<Config_change>> source;
};

} // namespace xpon::service
