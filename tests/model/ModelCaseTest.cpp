// Model trees kept as data: each folder under cases/ holds `model.zol`, loaded as the tool loads
// it, and `expected`, everything the loaded tree holds as text: the history, the bytes left
// unread per block, every entry with its links and payload, every geometry item with its array,
// attributes and loader, and what the loader gives in either element form. A folder that also
// holds `merge.zol` loads `model.zol` through a file of its own and then merges that one in.
// A load that fails shows only its failure.
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "CaseFiles.h"
#include "Mrl/Zol/DataLoader.h"
#include "Mrl/Zol/Geometry.h"
#include "Mrl/Zol/Group.h"
#include "Mrl/Zol/Shape.h"

namespace {

using namespace ZolTest;
using namespace MrlZol;
namespace fs = std::filesystem;

const fs::path kCases = fs::path(ZOL_SOURCE_DIR) / "tests/model/cases";

// Shortest exact text; a NaN keeps its bits.
std::string Num(float v) {
    if (std::isnan(v)) return "nan:" + std::to_string(std::bit_cast<uint32_t>(v));
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, v).ptr);
}
std::string Num(uint32_t v) {
    return std::to_string(v);
}

template <class T, size_t N>
std::string List(const T (&values)[N]) {
    std::string text;
    for (const T& v : values) text += " " + Num(v);
    return text;
}

// Empty when nothing was thrown.
std::string Failed(const Fail& fail) {
    return fail.first == ~0u ? "" : "fails " + std::to_string(fail.first) + " " + fail.second;
}

void PrintAttributes(std::ostream& out, const MrlZol::AttributeMap& map, const char* indent) {
    for (const auto& [name, value] : map) {
        out << indent << "attribute \"" << name << "\" tag " << value.tag << ": \""
            << AttributesToText(value) << "\"\n";
    }
}

// Long arrays show their head and a hash of them all.
template <class T>
std::string Values(const std::vector<T>& values) {
    std::string text = std::to_string(values.size()) + ":";
    uint32_t hash = 2166136261u;
    for (size_t i = 0; i < values.size(); ++i) {
        if (i < 16) text += " " + Num(values[i]);
        hash = (hash ^ std::bit_cast<uint32_t>(values[i])) * 16777619u;
    }
    return values.size() <= 16 ? text : text + " ... hash " + std::to_string(hash);
}

// One element form: the load, a second load, and the check without the copy.
template <class T>
void PrintLoad(std::ostream& out, const DataLoader& loader, ElementTag tag, const char* form) {
    const std::vector<T> sentinel = {T(7), T(7)};
    std::vector<T> values = sentinel, again;
    std::string text = Failed(Failure([&] { loader.LoadTo(values); }));
    if (text.empty()) {
        loader.LoadTo(again);
        text = values == sentinel ? "leaves its target untouched" : Values(values);
        if (values != sentinel && Values(again) != text) text += " (read again differs)";
    }
    uint32_t count = 0;
    const std::string check = Failed(Failure([&] { count = loader.CheckLoad(tag); }));
    out << "      " << form << " " << text << "; check "
        << (check.empty() ? std::to_string(count) : check) << "\n";
}

void PrintItem(std::ostream& out, size_t index, const GeometryData& item) {
    const NumericArray& a = item.array;
    out << "    item " << index << " \"" << item.name << "\" kind " << item.kind << " vibration "
        << item.isVibration << " linked " << item.linked << " to " << item.linkedGeometryId << "/"
        << item.linkedDataIndex << "\n      array bytes " << a.byteSize << " components "
        << int(a.components) << " flags " << int(a.flag1) << " " << int(a.flag2) << " "
        << int(a.flag3) << " values " << Num(a.value1) << " " << Num(a.value2) << " tag "
        << a.elementTag << " hasData " << int(a.hasData) << "\n";
    PrintAttributes(out, item.attributes, "      ");
    const DataLoader* loader = a.GetLoader();
    if (loader == nullptr) {
        out << "      no loader\n";
        return;
    }
    out << "      loader \"" << loader->blockName << "\" at " << loader->position << " bytes "
        << loader->byteSize << " components " << int(loader->components) << " planar "
        << int(loader->isPlanar) << " tag " << loader->elementTag << "\n";
    PrintLoad<uint32_t>(out, *loader, UnsignedElementTag, "unsigned");
    PrintLoad<float>(out, *loader, FloatElementTag, "float");
}

void PrintPayload(std::ostream& out, const Node& node) {
    out << "  " << node.GetClassName() << " \"" << node.name << "\" flags " << int(node.firstFlag)
        << " " << int(node.secondFlag) << " word " << node.word << "\n";
    if (auto* group = dynamic_cast<const Group*>(&node)) {
        out << "    translation" << List(group->translation) << " rotation" << List(group->rotation)
            << " scale" << List(group->scale) << " mergeable " << int(group->mergeable) << "\n";
        PrintAttributes(out, group->attributes, "    ");
    } else if (auto* shape = dynamic_cast<const Shape*>(&node)) {
        const Material& m = shape->material;
        out << "    diffuse" << List(m.diffuse) << " specular" << List(m.specular) << " emissive"
            << List(m.emissive) << " ambient" << List(m.ambient) << "\n    shininess "
            << Num(m.shininess) << " ambient factor " << Num(m.ambientFactor) << " flag "
            << int(m.materialFlag) << "\n";
    } else if (auto* geometry = dynamic_cast<const Geometry*>(&node)) {
        out << "    positions";
        for (const auto& [name, position] : geometry->positions) {
            out << " \"" << name << "\"=" << position;
        }
        out << "\n";
        for (size_t i = 0; i < geometry->data.size(); ++i) PrintItem(out, i, geometry->data[i]);
    }
}

void PrintTree(std::ostream& out, Tree& tree) {
    out << "file version \"" << tree.version << "\", next id " << tree.GetNextId() << "\n";
    for (const TranslationRecord& t : tree.translations) {
        out << "translation flag " << int(t.flag) << ": \"" << t.applicationName << "\" \""
            << t.applicationVersion << "\" \"" << t.zolVersion << "\" \"" << t.date << "\" \""
            << t.extraText << "\" \"" << t.userName << "\" \"" << t.comment << "\"\n";
    }
    // Before any value is loaded, which reads on in "Heavy Data".
    out << "unread";
    for (const char* block : {"Light Data", "Attributes", "Resources", "Heavy Data"}) {
        out << " \"" << block << "\" " << Unread(tree, block);
    }
    out << "\n";
    for (const auto& [key, e] : tree.GetEntries()) {
        out << "entry " << key << " id " << e.id << " parent " << e.parent << " siblings "
            << e.previousSibling << " " << e.nextSibling << " children " << e.firstChild << " "
            << e.lastChild << "\n";
        if (e.data != nullptr) PrintPayload(out, *e.data);
    }
}

std::string Outcome(const fs::path& folder) {
    std::ostringstream out;
    Tree tree;
    const bool merge = fs::exists(folder / "merge.zol");
    int32_t openMode = merge ? 2 : 1, loadKind = 0;
    std::string fail =
        Failed(Failure([&] { tree.Load((folder / "model.zol").string(), openMode, loadKind); }));
    if (merge && fail.empty()) {
        std::map<uint32_t, uint32_t> ids;
        const std::string second = (folder / "merge.zol").string();
        fail = Failed(Failure([&] { tree.Load(second, ids, openMode, loadKind); }));
        out << "merged ids";
        for (const auto& [from, to] : ids) out << " " << from << ">" << to;
        out << "; file open " << tree.file.IsOpen() << "\n";
    }
    out << (fail.empty() ? "" : "load " + fail + "\n");
    if (fail.empty()) PrintTree(out, tree);
    return out.str();
}

class ModelCase : public testing::TestWithParam<std::string> {};

TEST_P(ModelCase, Load) {
    const fs::path folder = kCases / GetParam();
    ExpectFile(folder / "expected", Outcome(folder));
}

INSTANTIATE_TEST_SUITE_P(Cases, ModelCase, testing::ValuesIn(CaseNames(kCases)), CaseTestName);

}  // namespace
