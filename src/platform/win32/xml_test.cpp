// The XML reader on the COM document object, under Windows or Wine (whose
// MSXML is its own): loading with DTD validation and its failures.

#include "platform/win32/win32_util.h"

#include <objbase.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/xml.h"

namespace platform {
namespace {

bool RunningUnderWine() {
    return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

class Win32XmlTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        m_Path = std::filesystem::temp_directory_path() / "ngi-win32-mapping.xml";
    }
    void TearDown() override {
        std::filesystem::remove(m_Path);
        ::CoUninitialize();
    }
    void Write(const char* text) { std::ofstream(m_Path, std::ios::binary) << text; }
    std::u16string Path() const { return m_Path.u16string(); }

    std::filesystem::path m_Path;
};

constexpr char kDtd[] =
    "<?xml version=\"1.0\"?>\n"
    "<!DOCTYPE ShadowsList [\n"
    "<!ELEMENT ShadowsList (Shadow*)>\n"
    "<!ELEMENT Shadow (OriginalVolumeGuidName, ShadowMountPointName)>\n"
    "<!ELEMENT OriginalVolumeGuidName (#PCDATA)>\n"
    "<!ELEMENT ShadowMountPointName (#PCDATA)>\n"
    "]>\n";

TEST_F(Win32XmlTest, FailuresSayWhy) {
    CXmlDocument doc;
    ASSERT_EQ(doc.Create(), kXmlOk);
    ASSERT_EQ(doc.SetValidateOnParse(true), kXmlOk);

    EXPECT_EQ(doc.Load(Path()), kXmlFalse);  // no file
    EXPECT_FALSE(doc.GetErrorText().empty());

    Write("<ShadowsList><Shadow></ShadowsList>");  // not well-formed
    EXPECT_EQ(doc.Load(Path()), kXmlFalse);
    EXPECT_FALSE(doc.GetErrorText().empty());
    EXPECT_TRUE(doc.GetDocument().IsNull());

    // Well-formed but not valid: Shadow lacks its second child. Windows
    // refuses it; Wine's document object does not validate against a DTD.
    Write((std::string(kDtd) +
           "<ShadowsList><Shadow><OriginalVolumeGuidName>x</OriginalVolumeGuidName></Shadow>"
           "</ShadowsList>")
              .c_str());
    EXPECT_EQ(doc.Load(Path()), RunningUnderWine() ? kXmlOk : kXmlFalse);
    ASSERT_EQ(doc.SetValidateOnParse(false), kXmlOk);
    EXPECT_EQ(doc.Load(Path()), kXmlOk);
}

}  // namespace
}  // namespace platform
