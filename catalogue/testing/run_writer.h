#pragma once
// A run folder for the catalogue's tests: volume.C_.ifd built from entries
// (CIndexBuilder) and the summary.txt that names it, as a run writes them.

#include <filesystem>
#include <string>

#include "catalogue/testing/catalogue_test_util.h"
#include "metafile/mtf_file_rw.h"
#include "metafile/mtf_tree.h"

namespace cattest {

class CRun {
public:
    explicit CRun(std::filesystem::path dir) : m_Dir(std::move(dir)) { std::filesystem::create_directories(m_Dir); }
    CRun(const ngitest::CTempDir& root, const std::string& name) : CRun(root.Native() / name) {}
    std::string Dir() const { return m_Dir.string(); }
    template <class Fill>
    void Write(Fill fill) {
        {
            ngitest::CTempDir scratch;
            CIndexBuilder b(scratch, u"volume.C_.ifd");
            fill(b);
            std::filesystem::copy_file(b.Close(), m_Dir / "volume.C_.ifd",
                                       std::filesystem::copy_options::overwrite_existing);
        }
        auto file = metafile::CMtfFile::Open((m_Dir / "summary.txt").u16string(), metafile::EMtfCreateNewDetached);
        file->SetAttribute(u"type", u"ifd");
        file->SetAttribute(u"Volumes.0.MountPointName", u"C:");
        file->SetAttribute(u"Volumes.0.DataFileName", u"volume.C_.ifd");
        file->Save();
    }

private:
    std::filesystem::path m_Dir;
};

}  // namespace cattest
