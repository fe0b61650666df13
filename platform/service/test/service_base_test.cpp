#include "xpon/service/service_base.hpp"

#include <future>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes.hpp"
#include "kit/matchers.hpp"

namespace xpon::service {
namespace {

using test::IsOk;

struct ServiceBaseTest : testing::Test {
    Journal journal;
    FakeService service{journal};
    ServiceCtx const ctx{[this] { journal.add("serving"); }};

    std::future<core::Result<void>> run_elsewhere() {
        return std::async(std::launch::async, [this] { return service.serve(ctx); });
    }
};

TEST_F(ServiceBaseTest, ReportsServingAndWaitsUntilItIsStopped) {
    auto running = run_elsewhere();
    ASSERT_TRUE(journal.wait_for(1));
    EXPECT_EQ(running.wait_for(std::chrono::seconds{0}), std::future_status::timeout);
    EXPECT_THAT(service.ServiceBase::stop(ctx), IsOk());
    ASSERT_EQ(running.wait_for(test::default_deadline), std::future_status::ready);
    EXPECT_THAT(running.get(), IsOk());
    EXPECT_THAT(journal.entries(), testing::ElementsAre("serving"));
}

TEST_F(ServiceBaseTest, StoppedBeforeItReturnsAtOnceAndDoesNotServe) {
    EXPECT_THAT(service.ServiceBase::stop(ctx), IsOk());
    EXPECT_THAT(service.serve(ctx), IsOk());
    EXPECT_THAT(journal.entries(), testing::IsEmpty());
}

TEST_F(ServiceBaseTest, OnceStoppedItStaysStopped) {
    EXPECT_THAT(service.ServiceBase::stop(ctx), IsOk());
    EXPECT_THAT(service.ServiceBase::stop(ctx), IsOk());
    EXPECT_THAT(service.serve(ctx), IsOk());
    EXPECT_THAT(service.serve(ctx), IsOk());
    EXPECT_THAT(journal.entries(), testing::IsEmpty());
}

TEST_F(ServiceBaseTest, WhoeverIsToldThatItServesMayStopItAtOnce) {
    ServiceCtx const stops_at_once{[this] { std::ignore = service.ServiceBase::stop(ctx); }};
    EXPECT_THAT(service.serve(stops_at_once), IsOk());
}

TEST_F(ServiceBaseTest, NobodyNeedsToBeToldThatItServes) {
    ServiceCtx const nobody;
    auto running = std::async(std::launch::async, [&] { return service.serve(nobody); });
    EXPECT_THAT(service.ServiceBase::stop(nobody), IsOk());
    ASSERT_EQ(running.wait_for(test::default_deadline), std::future_status::ready);
    EXPECT_THAT(running.get(), IsOk());
}

TEST_F(ServiceBaseTest, NeedsNoMasterChangeAtItsBeginning) {
    EXPECT_FALSE(service.ServiceBase::is_required_master_change_event());
}

} // namespace
} // namespace xpon::service
