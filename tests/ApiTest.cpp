// The public API's promises: values equal to the internals' whole-array load in any ranges,
// checked ranges, handles that own their file, one error type, and threads (this suite also
// runs under ThreadSanitizer).
#include <Mrl/Model.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "Mrl/Hbf/HbFile.h"
#include "Mrl/Zol/ModelFacts.h"
#include "Mrl/Zol/Tree.h"

namespace {

namespace fs = std::filesystem;
using Words = std::vector<uint32_t>;

std::string Source(const std::string& relative) {
    return std::string(ZOL_SOURCE_DIR) + "/" + relative;
}

// A folder of this process's own, gone when it ends.
fs::path Scratch() {
    static const struct Folder {
        fs::path path = fs::temp_directory_path() / ("api-test-" + std::to_string(getpid()));
        Folder() { fs::create_directories(path); }
        ~Folder() {
            std::error_code ignored;
            fs::remove_all(path, ignored);
        }
    } folder;
    return folder.path;
}

// Models of every layout zolgen writes, made once for the suite.
const std::vector<std::string>& GeneratedModels() {
    static const std::vector<std::string> models = [] {
        const char* layouts[] = {
            "--version 1.1 --compressed --components 3 --parts 3 --seed 1",
            "--version 1.1 --plain --components 6 --parts 1 --seed 2",
            "--version 0.7 --compressed --components 1 --parts 2 --seed 3",
            "--version 0.6 --plain --components 3 --parts 2 --seed 4",
        };
        std::vector<std::string> paths;
        for (const char* layout : layouts) {
            std::string path = (Scratch() / ("model" + std::to_string(paths.size()) + ".zol"));
            std::string command = std::string(ZOLGEN_EXE) + " -o " + path +
                                  " --nodes 3001 --elements 1500 --results 2 " + layout +
                                  " >/dev/null";
            if (std::system(command.c_str()) != 0) ADD_FAILURE() << command;
            paths.push_back(path);
        }
        return paths;
    }();
    return models;
}

std::vector<std::string> AllModels() {
    std::vector<std::string> paths = GeneratedModels();
    paths.push_back(Source("examples/wheel.zol"));
    for (const auto& entry : fs::directory_iterator(Source("tests/data/sweep"))) {
        paths.push_back(entry.path());
    }
    return paths;
}

// Every array's values through the internals' whole-array load, which the dump uses.
std::vector<Words> WholeLoads(const std::string& path) {
    MrlZol::Tree tree;
    int32_t openMode = 1;
    int32_t loadKind = 0;
    tree.Load(path, openMode, loadKind);
    MrlZol::ModelFacts facts = MrlZol::CollectModelFacts(tree, "", true, nullptr, false);
    std::vector<Words> values;
    for (MrlZol::ArrayRecord& record : facts.arrays) {
        record.LoadValues();
        values.emplace_back(record.Size());
        if (!values.back().empty()) record.ReadRange(0, record.Size(), values.back().data());
    }
    return values;
}

// An array's values read in ranges of `step`, as 32-bit patterns.
Words ReadInSteps(const Mrl::Array& array, uint64_t step) {
    Words values(array.Size());
    for (uint64_t first = 0; first < values.size(); first += step) {
        uint64_t count = std::min<uint64_t>(step, values.size() - first);
        if (array.IsFloat()) {
            array.Read(first, count, reinterpret_cast<float*>(values.data() + first));
        } else {
            array.Read(first, count, values.data() + first);
        }
    }
    return values;
}

std::vector<Words> ReadAll(const Mrl::Model& model, uint64_t step) {
    std::vector<Words> values;
    for (const Mrl::Array& array : model.Arrays()) values.push_back(ReadInSteps(array, step));
    return values;
}

// Runs body with standard error sent to a file; returns what was written there.
template <class Body>
std::string StandardErrorOf(Body&& body) {
    fs::path file = Scratch() / "stderr";
    std::fflush(stderr);
    int saved = dup(2);
    int target = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(target, 2);
    close(target);
    body();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Api, RangesEqualTheWholeArray) {
    for (const std::string& path : AllModels()) {
        SCOPED_TRACE(path);
        std::vector<Words> expected = WholeLoads(path);
        Mrl::Model model = Mrl::Model::Open(path);
        ASSERT_EQ(model.Arrays().size(), expected.size());
        // Steps that split items of 3 and 6 components and the byte planes' 16-value runs.
        for (uint64_t step : {uint64_t{7}, uint64_t{4099}, uint64_t{1} << 20}) {
            EXPECT_EQ(ReadAll(model, step), expected) << "step " << step;
        }
    }
}

TEST(Api, ReportAndHistoryAreThoseOfTheTool) {
    Mrl::Model model = Mrl::Model::Open(Source("examples/wheel.zol"));
    EXPECT_EQ(model.Version(), "1.1");
    ASSERT_EQ(model.History().size(), 2u);
    EXPECT_EQ(model.History()[0].applicationName, "Translator");
    std::vector<std::pair<std::string, std::string>> report = model.Report();
    std::vector<std::pair<std::string, std::string>> ekm = model.EkmReport();
    ASSERT_EQ(report.size(), ekm.size());
    ASSERT_FALSE(report.empty());
    // The tool's report holds every entry as <Key>value</Key>; entries with markup characters
    // are escaped there, and the example has none.
    std::string command = "MORLANE_TEMP_PATH=" + Scratch().string() + " " + ZOLINFO_EXE + " " +
                          Source("examples/wheel.zol") + " 2>/dev/null";
    std::string xml;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) xml.append(buffer, n);
        pclose(pipe);
    }
    for (const auto& [key, value] : report) {
        EXPECT_NE(xml.find(value), std::string::npos) << key;
    }
    EXPECT_EQ(ekm[0].second, report[0].second);
}

TEST(Api, RangesAreChecked) {
    Mrl::Model model = Mrl::Model::Open(Source("examples/wheel.zol"));
    const Mrl::Array& coordinates = model.Arrays().at(0);
    const Mrl::Array& connectivity = model.Arrays().at(3);
    ASSERT_TRUE(coordinates.IsFloat());
    ASSERT_FALSE(connectivity.IsFloat());
    uint64_t size = coordinates.Size();
    struct Case {
        uint64_t first, count;
        uint32_t kind;
    } cases[] = {
        {0, size + 1, 1}, {size, 1, 1}, {size + 1, 0, 1}, {1, UINT64_MAX, 1}, {size, 0, 0},
    };
    for (const Case& c : cases) {
        std::vector<float> out(4, -1.0f);  // a read writes nothing when it throws
        uint32_t kind = 0;
        try {
            coordinates.Read(c.first, c.count, out.data());
        } catch (const Mrl::Error& error) {
            kind = error.Kind();
            EXPECT_NE(error.Where().find("Coordinates"), std::string::npos);
        }
        EXPECT_EQ(kind, c.kind) << c.first << " " << c.count;
        EXPECT_EQ(out, std::vector<float>(4, -1.0f));
    }
    float asFloat = 0;
    uint32_t asWord = 0;
    EXPECT_THROW(connectivity.Read(0, 1, &asFloat), Mrl::Error);
    EXPECT_THROW(coordinates.Read(0, 1, &asWord), Mrl::Error);
}

// Arrays returned from a function whose Model is gone still read.
std::vector<Mrl::Array> ArraysOf(const std::string& path) {
    Mrl::Model model = Mrl::Model::Open(path);
    return model.Arrays();
}

TEST(Api, HandlesOwnTheirFile) {
    std::string path = GeneratedModels()[0];
    std::vector<Words> expected = WholeLoads(path);
    std::vector<Mrl::Array> arrays = ArraysOf(path);
    for (size_t i = 0; i < arrays.size(); ++i) EXPECT_EQ(ReadInSteps(arrays[i], 1000), expected[i]);

    std::vector<Mrl::Model> models;
    for (int i = 0; i < 3; ++i) models.push_back(Mrl::Model::Open(path));
    Mrl::Model taken = std::move(models[0]);
    EXPECT_EQ(ReadAll(taken, 1 << 16), expected);
    try {
        (void)models[0].Arrays();
        ADD_FAILURE() << "a moved-from Model answered";
    } catch (const Mrl::Error& error) {
        EXPECT_EQ(error.Kind(), 3u);
    }
}

TEST(Api, FailuresAreOneLineErrorsNamingTheFile) {
    fs::path dir = Scratch();
    fs::path fifo = dir / "fifo.zol";
    fs::remove(fifo);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    fs::path truncated = dir / "truncated.zol";
    fs::copy_file(Source("examples/wheel.zol"), truncated, fs::copy_options::overwrite_existing);
    fs::resize_file(truncated, fs::file_size(truncated) / 2);
    fs::path newline = dir / "new\nline.zol";
    std::ofstream(newline) << "not a model";
    struct Case {
        std::string path;
        uint32_t kind;
        int systemError;
        std::string description;
    } cases[] = {
        {(dir / "missing.zol").string(), 9, ENOENT, "No such file or directory"},
        {dir.string(), 9, 0, "Not a regular file"},
        {fifo.string(), 9, 0, "Not a regular file"},
        {Source("tests/data/golden/bad-magic.zol"), 11, 0, "is not a Zol file"},
        {truncated.string(), 9, 0, "Unable to read from file"},
        {newline.string(), 11, 0, "is not a Zol file"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        try {
            Mrl::Model::Open(c.path);
            ADD_FAILURE() << "opened";
        } catch (const Mrl::Error& error) {
            EXPECT_EQ(error.Kind(), c.kind);
            EXPECT_EQ(error.File(), c.path);
            EXPECT_EQ(error.SystemError(), c.systemError);
            EXPECT_NE(error.Description().find(c.description), std::string::npos)
                << error.Description();
            std::string what = error.what();
            EXPECT_EQ(what.find('\n'), std::string::npos) << what;
            EXPECT_EQ(what.rfind(error.File().substr(0, error.File().find('\n')), 0), 0u);
        }
    }
}

// The stored bytes of the first compressed block of the name: its place in the file.
std::pair<uint64_t, uint32_t> StoredPlace(const std::string& path, const std::string& name) {
    MrlHbf::HbFile file;
    file.OpenFile(path, "rb");
    file.ReadIndex();
    for (const MrlHbf::IndexEntry& entry : file.GetIndex().GetEntries()) {
        if (entry.name == name && entry.flags != 0) return {entry.filePosition, entry.storedSize};
    }
    return {0, 0};
}

TEST(Api, FailuresOfTheModelAreErrorsAndNothingIsPrinted) {
    // A Heavy Data block whose zlib check value is wrong: the arrays in it fail to read.
    fs::path damaged = Scratch() / "inflate.zol";
    fs::copy_file(GeneratedModels()[0], damaged, fs::copy_options::overwrite_existing);
    auto [position, size] = StoredPlace(damaged, "Heavy Data");
    ASSERT_GT(size, 4u);
    std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(position + size - 1));
    file.put('\x5A');
    file.close();

    std::vector<std::string> descriptions;
    std::vector<std::string> warnings;
    std::string printed = StandardErrorOf([&] {
        for (const char* name : {"inflate", "broken-payload", "lonely-shape"}) {
            std::string path = std::string(name) == "inflate"
                                   ? damaged.string()
                                   : Source("tests/data/golden/" + std::string(name) + ".zol");
            Mrl::Model model = Mrl::Model::Open(
                path, [&](const Mrl::Error& warning) { warnings.push_back(warning.what()); });
            for (const Mrl::Array& array : model.Arrays()) {
                std::vector<float> floats(array.Size());
                std::vector<uint32_t> words(array.Size());
                try {
                    array.IsFloat() ? array.Read(0, floats.size(), floats.data())
                                    : array.Read(0, words.size(), words.data());
                } catch (const Mrl::Error& error) {
                    descriptions.push_back(error.Description());
                    EXPECT_EQ(error.File(), path);
                    EXPECT_EQ(error.Where(),
                              "array \"" + array.Name() + "\" of \"" + array.Geometry() + "\"");
                }
            }
        }
    });
    EXPECT_EQ(printed, "");
    ASSERT_FALSE(descriptions.empty());
    EXPECT_EQ(descriptions.front(), "Error -3 while uncompressing block");
    EXPECT_EQ(descriptions.back(), "Invalid block position");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_NE(warnings[0].find("lonely-shape.zol: Element Not Found"), std::string::npos);
}

TEST(Api, ThreadsWithModelsOfTheirOwn) {
    const std::vector<std::string>& paths = GeneratedModels();
    std::vector<std::vector<Words>> expected;
    for (const std::string& path : paths) expected.push_back(WholeLoads(path));
    std::vector<int> mismatches(8, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < mismatches.size(); ++t) {
        threads.emplace_back([&, t] {
            // Two threads on each file, each with its own Model.
            size_t which = t % paths.size();
            Mrl::Model model = Mrl::Model::Open(paths[which]);
            if (ReadAll(model, 3000 + t) != expected[which]) ++mismatches[t];
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(mismatches.size(), 0));
}

TEST(Api, ThreadsSharingOneModel) {
    std::string path = GeneratedModels()[0];
    std::vector<Words> expected = WholeLoads(path);
    Mrl::Model model = Mrl::Model::Open(path);
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < mismatches.size(); ++t) {
        threads.emplace_back([&, t] {
            // Each thread walks the arrays from another start, so that reads of different
            // blocks interleave.
            const std::vector<Mrl::Array>& arrays = model.Arrays();
            for (size_t round = 0; round < 3; ++round) {
                for (size_t k = 0; k < arrays.size(); ++k) {
                    size_t i = (k + t * 3) % arrays.size();
                    if (ReadInSteps(arrays[i], 777 + t) != expected[i]) ++mismatches[t];
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches, std::vector<int>(mismatches.size(), 0));
}

}  // namespace
