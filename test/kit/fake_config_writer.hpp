#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "xpon/config_writer/i_config_writer.hpp"

namespace xpon::test {

/// What was written through a FakeConfigWriter; outlives it.
struct Written {
    std::vector<std::string> texts;
    std::function<core::Result<void>()> answer = [] { return core::Result<void>{core::success()}; };
};

/// Remembers every text that it is given, then answers as told.
class FakeConfigWriter : public config_writer::IConfigWriter {
  public:
    explicit FakeConfigWriter(std::shared_ptr<Written> record)
      : written{std::move(record)} {}

    core::Result<void> write(std::string const& text) override {
        written->texts.push_back(text);
        return written->answer();
    }

  private:
    std::shared_ptr<Written> written;
};

} // namespace xpon::test
