#pragma once
// Cases kept as data: one folder per case, its expected files beside its inputs.
// ZOL_GOLDEN_UPDATE=1 rewrites the expected files instead of comparing, so that a change of
// output reads as a diff.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace ZolTest {

inline bool UpdatingGolden() {
    return std::getenv("ZOL_GOLDEN_UPDATE") != nullptr;
}

// The folders under `cases`, sorted.
inline std::vector<std::string> CaseNames(const std::filesystem::path& cases) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(cases)) {
        if (entry.is_directory()) names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Test names allow only letters, digits and underscores.
inline std::string CaseTestName(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

// Compares `text` with the expected file, or writes it there when updating.
inline void ExpectFile(const std::filesystem::path& path, const std::string& text) {
    const std::string name = path.filename().string();
    if (UpdatingGolden()) {
        WriteFile(path.string(), Bytes(text.begin(), text.end()));
    } else {
        EXPECT_TRUE(std::filesystem::exists(path)) << name << " made but not expected";
        EXPECT_EQ(text, ReadText(path.string())) << name;
    }
}

}  // namespace ZolTest
