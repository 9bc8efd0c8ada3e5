#include "base/DetectPlatform.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

class FakeSystem : public SystemInfo {
public:
    FakeSystem(std::optional<std::u16string> type, int major) : type_(std::move(type)), major_(major) {}
    std::optional<std::u16string> PlatformType() const override { return type_; }
    std::optional<std::u16string> OemInfo() const override { return std::nullopt; }
    int OsMajorVersion() const override { return major_; }

private:
    std::optional<std::u16string> type_;
    int major_;
};

TEST(DetectPlatformRule, OnlyASmartphoneTextOnAModernSystemIsASmartphone)
{
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(u"Smartphone", 5)), 1);
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(u"SMARTPHONE", 3)), 1);
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(u"PocketPC", 5)), 0);
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(u"Smartphone2003", 5)), 0);
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(u"Smartphone", 2)), 0);
    EXPECT_EQ(DetectPlatformFrom(FakeSystem(std::nullopt, 5)), 0);
}

} // namespace
} // namespace talvo
