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

constexpr char kDtd[] =
    "<?xml version=\"1.0\"?>\n"
    "<!DOCTYPE ShadowsList [\n"
    "<!ELEMENT ShadowsList (Shadow*)>\n"
    "<!ELEMENT Shadow (OriginalVolumeGuidName, ShadowMountPointName)>\n"
    "<!ELEMENT OriginalVolumeGuidName (#PCDATA)>\n"
    "<!ELEMENT ShadowMountPointName (#PCDATA)>\n"
    "]>\n";

TEST(Win32Xml, FailuresSayWhy) {
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    const auto path = std::filesystem::temp_directory_path() / "ngi-win32-mapping.xml";
    const auto write = [&](const std::string& text) { std::ofstream(path, std::ios::binary) << text; };
    CXmlDocument doc;
    ASSERT_EQ(doc.Create(), kXmlOk);
    ASSERT_EQ(doc.SetValidateOnParse(true), kXmlOk);

    EXPECT_EQ(doc.Load(path.u16string()), kXmlFalse);  // no file
    EXPECT_FALSE(doc.GetErrorText().empty());

    write("<ShadowsList><Shadow></ShadowsList>");  // not well-formed
    EXPECT_EQ(doc.Load(path.u16string()), kXmlFalse);
    EXPECT_FALSE(doc.GetErrorText().empty());
    EXPECT_TRUE(doc.GetDocument().IsNull());

    // Well-formed but not valid: Shadow lacks its second child. Windows
    // refuses it; Wine's document object does not validate against a DTD.
    write(std::string(kDtd) +
          "<ShadowsList><Shadow><OriginalVolumeGuidName>x</OriginalVolumeGuidName></Shadow>"
          "</ShadowsList>");
    EXPECT_EQ(doc.Load(path.u16string()), RunningUnderWine() ? kXmlOk : kXmlFalse);
    ASSERT_EQ(doc.SetValidateOnParse(false), kXmlOk);
    EXPECT_EQ(doc.Load(path.u16string()), kXmlOk);
    std::filesystem::remove(path);
    ::CoUninitialize();
}

}  // namespace
}  // namespace platform
