// Scratch names: the UUID text form and the version and variant bits.
#include "core/common/uuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "core/common/strings.h"

namespace {

TEST(UuidTest, FormatsFieldsLikeTheWindowsGuidStructure) {
    Common::Uuid uuid = {0x78, 0x56, 0x34, 0x12, 0xBC, 0x9A, 0xF0, 0x4E, 0x81, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    EXPECT_EQ(Common::FormatUuid(uuid), L"12345678-9ABC-4EF0-8123-456789ABCDEF");
}

TEST(UuidTest, FreshNamesAreVersion4AndDistinct) {
    std::set<std::wstring> names;
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    for (int i = 0; i < 1000; ++i) {
        std::wstring name = Common::NewScratchName();
        EXPECT_TRUE(std::regex_match(Common::WideToUtf8(name), shape)) << Common::WideToUtf8(name);
        names.insert(name);
    }
    EXPECT_EQ(names.size(), 1000u);
}

}  // namespace
