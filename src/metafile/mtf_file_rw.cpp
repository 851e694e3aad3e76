#include "metafile/mtf_file_rw.h"

#include "base/exc.h"
#include "base/format.h"
#include "metafile/mtf_binary_file.h"

namespace metafile {

namespace {

std::u16string OldName(std::u16string_view name) { return std::u16string(name) + u".old"; }

[[noreturn]] void ThrowBadMode(int32_t mode) {
    throw CExc(u"The specified open mode \"%1\" is not supported.", util::ToStr(mode));
}

}  // namespace

std::u16string MtfOpenModeName(int32_t mode) {
    switch (mode) {
        case EMtfLoad: return u"EMtfLoad";
        case EMtfOpenRW: return u"EMtfOpenRW";
        case EMtfCreateNewDetached: return u"EMtfCreateNewDetached";
        default: return util::ToStr(mode);
    }
}

std::shared_ptr<CMtfFileRw> CMtfFileRw::Open(std::u16string_view name, int32_t mode) {
    std::shared_ptr<CMtfFileRw> rw(new CMtfFileRw(std::u16string(name)));
    try {
        rw->_Open(mode);
    } catch (CExc& e) {
        e.AddContext(u"Cannot create or load meta-file \"%1\". Open mode: %2", name, MtfOpenModeName(mode));
        throw;
    }
    return rw;
}

void CMtfFileRw::_Open(int32_t mode) {
    // An interrupted save left a .old: the last good version.
    const std::u16string old = OldName(m_Name);
    if (MtfFileExists(old)) {
        switch (mode) {
            case EMtfLoad: {
                auto file = CMtfBinaryFile::OpenExisting(old, false);
                if (!file) throw CExc(u"File \"%1\" does not exist.", old);
                m_Lines = CMtfLinesTab::Load(*file, m_Name);
                return;  // the main file is not looked at
            }
            case EMtfOpenRW:
                MtfCopyFile(old, m_Name);
                MtfDeleteFile(old);
                break;
            case EMtfCreateNewDetached:
                MtfDeleteFile(old);
                break;
            default:
                ThrowBadMode(mode);
        }
    }
    switch (mode) {
        case EMtfLoad: {
            auto file = CMtfBinaryFile::OpenExisting(m_Name, false);
            if (!file) throw CExc(u"File \"%1\" does not exist.", m_Name);
            m_Lines = CMtfLinesTab::Load(*file, m_Name);
            break;
        }
        case EMtfOpenRW:
            m_File = CMtfBinaryFile::OpenExisting(m_Name, true);
            if (m_File) {
                m_Lines = CMtfLinesTab::Load(*m_File, m_Name);
            } else {
                m_File = CMtfBinaryFile::Create(m_Name);
                m_Lines = std::make_shared<CMtfLinesTab>(m_Name);
                m_Lines->Rewrite(*m_File);  // the mark alone
            }
            break;
        case EMtfCreateNewDetached:
            if (MtfFileExists(m_Name)) MtfDeleteFile(m_Name);
            m_Lines = std::make_shared<CMtfLinesTab>(m_Name);
            break;
        default:
            ThrowBadMode(mode);
    }
}

void CMtfFileRw::Save() {
    try {
        if (!m_File) {
            _SafeRewrite();
            return;
        }
        switch (m_Lines->GetChangeKind()) {
            case MtfNoChange: break;
            case MtfChangeAppend: m_Lines->WriteIncrementally(*m_File); break;
            case MtfChangeRewrite: _SafeRewrite(); break;
        }
    } catch (CExc& e) {
        e.AddContext(u"Cannot save changes in meta-file \"%1\".", m_Name);
        throw;
    }
}

void CMtfFileRw::_SafeRewrite() {
    if (!MtfFileExists(m_Name)) {
        auto file = CMtfBinaryFile::Create(m_Name);
        m_Lines->Rewrite(*file);
        return;
    }
    const std::u16string old = OldName(m_Name);
    // A .old that stands already is the last good version: keep it.
    if (!MtfFileExists(old)) MtfCopyFile(m_Name, old);
    auto file = m_File ? m_File : CMtfBinaryFile::Create(m_Name);
    m_Lines->Rewrite(*file);
    MtfDeleteFile(old);
}

void CMtfFileRw::Detach() { m_File.reset(); }

}  // namespace metafile
