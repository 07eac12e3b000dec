// Common::Error: sharing, release of whole chains, text form, and the exception boundary.
#include "core/common/error.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using Common::Error;

TEST(ErrorTest, EmptyAndZeroCodeAreSuccess) {
    EXPECT_EQ(Error().ToString(), "Success");
    EXPECT_FALSE(Error().Failed());
    Error zero = Error::Make(0, L"not really an error");
    EXPECT_FALSE(zero.Failed());
    EXPECT_EQ(zero.ToString(), "Success");
}

TEST(ErrorTest, ChainCarriesCodesMessagesAndSourcePosition) {
    Error inner = Error::Make(5, L"inner");
    Error outer = Error::Make(0x4000a, L"Error occurred while creating the file.", inner);
    EXPECT_EQ(outer.Code(), 0x4000au);
    EXPECT_EQ(outer.Cause().Code(), 5u);
    EXPECT_EQ(outer.Cause().Message(), L"inner");
    std::string text = outer.ToString();
    EXPECT_NE(text.find("Error occurred while creating the file."), std::string::npos);
    EXPECT_NE(text.find("code=0x4000a"), std::string::npos);
    EXPECT_NE(text.find("$module=system_report_vs_38530"), std::string::npos);
    EXPECT_NE(text.find("error_tests.cpp"), std::string::npos);
    EXPECT_NE(text.find("$line="), std::string::npos);
    EXPECT_LT(text.find("creating the file"), text.find("inner"));
}

TEST(ErrorTest, LastHandleReleasesEveryEntryOfTheChain) {
    Error first = Error::Make(1, L"first");
    Error second = Error::Make(2, L"second", first);
    Error third = Error::Make(3, L"third", second);
    Error probe = first;  // one outside reference to the innermost entry
    ASSERT_EQ(probe.UseCount(), 3u);  // probe, `first`, and the chain
    first = Error();
    second = Error();
    EXPECT_EQ(probe.UseCount(), 2u);
    third = Error();  // releases "third", then "second", then drops the chain's hold on "first"
    EXPECT_EQ(probe.UseCount(), 1u);
}

TEST(ErrorTest, LongChainIsReleasedWithoutRecursion) {
    Error chain;
    for (int i = 0; i < 200000; ++i) chain = Error::Make(static_cast<std::uint32_t>(i + 1), L"x", chain);
    chain = Error();  // a recursive release would overflow the stack here
    SUCCEED();
}

TEST(ErrorTest, CopiesOnManyThreadsKeepTheCountExact) {
    Error shared = Error::Make(7, L"shared");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([shared] {
            for (int i = 0; i < 10000; ++i) {
                Error copy = shared;
                (void)copy;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(shared.UseCount(), 1u);
}

TEST(ErrorTest, WithFieldAddsToTheFirstEntryOnly) {
    Error base = Error::Make(9, L"base");
    Error tagged = base.WithField({"operation", Common::ErrorField::Kind::Text, "DaGetProperty", 0});
    EXPECT_NE(tagged.ToString().find("operation=DaGetProperty"), std::string::npos);
    EXPECT_EQ(base.ToString().find("operation="), std::string::npos);
}

TEST(ErrorTest, ExceptionsBecomeErrorsAtTheBoundary) {
    Error carried = Common::CatchErrors([] { Common::ThrowIfFailed(Error::Make(0x40007, L"carried")); });
    EXPECT_EQ(carried.Code(), 0x40007u);
    Error foreign = Common::CatchErrors([] { throw std::runtime_error("boom"); });
    EXPECT_EQ(foreign.Code(), Common::Codes::kUnexpected);
    EXPECT_NE(foreign.ToString().find("boom"), std::string::npos);
    Error fine = Common::CatchErrors([] { return Error(); });
    EXPECT_FALSE(fine.Failed());
}

TEST(ErrorTest, SystemCodesKeepTheirCodeWithOrWithoutText) {
    Error windows = Error::AddWindowsError(5);
    EXPECT_EQ(windows.Code(), 5u);
    Error status = Error::AddNTStatus(0xC0000002u);
    EXPECT_EQ(status.Code(), 0xC0000002u);
    EXPECT_NE(status.ToString().find("0xc0000002"), std::string::npos);
    Error errnoError = Error::AddErrno(2);
    EXPECT_FALSE(errnoError.Message().empty());
}

}  // namespace
