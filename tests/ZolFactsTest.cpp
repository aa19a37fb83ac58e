// The facts of a model that the whole runs don't reach in all their cases: file types, EKM
// keys and size thresholds. The summary's counts, order and categories are golden cases.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "Mrl/Zol/FileTypes.h"
#include "Mrl/Zol/ModelFacts.h"
#include "TestSupport.h"

namespace {

using namespace MrlZol;

TEST(ZolFacts, FileTypes) {
    // Whole extensions match only themselves and by case; the three result rows are prefixes;
    // either separator ends a directory.
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"/models/run.op2", "Nastran OP2"}, {"part.STL", "Stereolithography Format"},
        {"part.Stl", "Unknown Format"}, {"run.odbx", "Unknown Format"},
        {"model.nod0012", "Patran Nodal Result"}, {"model.di", "Unknown Format"},
        {"C:\\mixed/dir\\wheel.rst", "ANSYS RST"}, {"/runs/d3plot12", "LS-Dyna d3plot"},
        {"C:\\runs\\d3plot.bak", "LS-Dyna d3plot"}, {"/runs/D3PLOT", "Unknown Format"},
        {"/d3plot.dir/case1", "Unknown Format"}, {"/data/run.rst.1", "Unknown Format"},
        {"/data/.rst", "ANSYS RST"}, {"/data/model.", "Unknown Format"},
        {"", "Unknown Format"}, {"C:\\data\\model.odb\\", "Unknown Format"},
        {"d3plot", "LS-Dyna d3plot"},
    };
    // clang-format on
    for (const auto& [path, format] : cases) EXPECT_EQ(GetFileTypeName(path), format) << path;
}

TEST(ZolFacts, EkmKeys) {
    const std::pair<const char*, const char*> keys[] = {
        {"", ""},
        {"Application name (Latest Translation)", "applicationname(LatestTranslation)"},
        {"a\tb\nc\vd\fe\rf g", "abcdefg"},
        {" Lead", " Lead"},  // the first character is never dropped
        {"\xC4pfel Z", "\xC4pfelZ"},
        {"Z", "z"}};
    for (const auto& [key, ekm] : keys) EXPECT_EQ(ToEkmKey(key), ekm) << key;
}

TEST(ZolFacts, FileSizeText) {
    ZolTest::TempDir dir;
    const std::pair<off_t, const char*> cases[] = {{0, "0 B"},           {1024, "1024 B"},
                                                   {1025, "1.00098 KB"}, {1536, "1.5 KB"},
                                                   {1048576, "1024 KB"}, {1048577, "1 MB"}};
    for (const auto& [size, text] : cases) {
        std::string path = dir.Write(ZolTest::Bytes{}, "f" + std::to_string(size));
        ASSERT_EQ(truncate(path.c_str(), size), 0);
        EXPECT_EQ(FileSizeText(path), text) << size;
    }
    // A missing file gives the platform's message for the error, and nothing else.
    EXPECT_EQ(FileSizeText(dir / "missing.zol"), std::strerror(ENOENT));
}

}  // namespace
