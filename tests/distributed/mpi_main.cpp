// SPDX-License-Identifier: LicenseRef-qxkernel
// A test program of several ranks: each runs every test, and all learn whether one of them failed in it.
#include "distributed/world.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

using namespace qx::distributed;

namespace {

std::unique_ptr<Session> session;

/// Failures are told with their rank; the rest only once. After each test the ranks wait for each other.
class Ranks : public testing::EmptyTestEventListener
{
public:
    explicit Ranks(testing::TestEventListener* printer) : printer_(printer) {}
    ~Ranks() override { delete printer_; }

    void OnTestStart(const testing::TestInfo& info) override
    {
        if (session->rank() == 0)
            printer_->OnTestStart(info);
    }
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        if (!result.failed())
            return;
        std::fprintf(stderr, "rank %d of %d: %s:%d\n%s\n", session->rank(), session->size(),
                     result.file_name() != nullptr ? result.file_name() : "?", result.line_number(), result.message());
    }
    void OnTestEnd(const testing::TestInfo& info) override
    {
        MPI_Barrier(session->comm());
        if (session->rank() == 0 && info.result()->Failed())
            printer_->OnTestEnd(info);
    }
    void OnTestProgramEnd(const testing::UnitTest& test) override
    {
        if (session->rank() == 0)
            printer_->OnTestProgramEnd(test);
    }

private:
    testing::TestEventListener* printer_;
};

} // namespace

const Session& world() { return *session; }

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    session = std::make_unique<Session>(MPI_COMM_WORLD, SessionOptions{.patience = 5.0});
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    listeners.Append(new Ranks(listeners.Release(listeners.default_result_printer())));
    const int own = RUN_ALL_TESTS();
    int any = 0;
    MPI_Allreduce(&own, &any, 1, MPI_INT, MPI_MAX, session->comm());
    session.reset();
    return any;
}
