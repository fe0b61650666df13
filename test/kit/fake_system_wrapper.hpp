#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "xpon/system_wrapper/i_system_wrapper.hpp"

namespace xpon::test {

/// Remembers every command; answers what `answer` says, 0 unless told otherwise.
class FakeSystemWrapper : public system_wrapper::ISystemWrapper {
  public:
    using Answer = std::function<core::Result<int>(std::string const& command)>;

    FakeSystemWrapper() = default;
    explicit FakeSystemWrapper(Answer answer_with)
      : answer{std::move(answer_with)} {}

    core::Result<int> execute(std::string const& command) override {
        {
            std::lock_guard const lock{mutex};
            executed.push_back(command);
        }
        return answer(command);
    }

    std::vector<std::string> commands() const {
        std::lock_guard const lock{mutex};
        return executed;
    }

    Answer answer = [](std::string const&) -> core::Result<int> { return 0; };

  private:
    mutable std::mutex mutex;
    std::vector<std::string> executed; // guarded by mutex
};

} // namespace xpon::test
