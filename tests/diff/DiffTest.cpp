// Model pairs with differences planted at known places: the statuses, the largest differences
// and their places, tolerances just either side of each planted difference, and matching by
// ids across another node and element order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <limits>
#include <sstream>

#include "DiffModel.h"
#include "DiffSupport.h"

namespace {

using namespace ZolTest;
using ZolDiff::DiffReport;

const std::string kStress = "Stress\x1EStep 1";
const std::string kDisplacement = "Displacement\x1EStep 1";
const std::string kEnergy = "Energy\x1EStep 1";

// Sets the value of a node's result, found by the node's id.
void SetAtNode(DiffModel& model, const std::string& result, float id, size_t component,
               float value) {
    DiffResult& r = model.Result(result);
    r.values[NodeAt(model, id) * r.components + component] = value;
}

// Node and element orders that move every node and element.
const std::vector<size_t> kNodeOrder = {11, 3, 7, 0, 9, 1, 10, 2, 8, 4, 6, 5};
const std::vector<size_t> kElementOrder = {5, 2, 0, 4, 1, 3};

struct Planted {
    const char* name;
    std::function<void(DiffModel& a, DiffModel& b)> plant;
    std::vector<std::string> args;
    int status;
    std::function<void(const DiffReport&)> check = nullptr;
};

const ZolDiff::ArrayDiff& Only(const DiffReport& report) {
    EXPECT_EQ(report.arrays.size(), 1u);
    static const ZolDiff::ArrayDiff none;
    return report.arrays.empty() ? none : report.arrays[0];
}

void ExpectPlace(const std::optional<ZolDiff::ValueDiff>& value, uint64_t index,
                 std::optional<int64_t> id, uint64_t component, double a, double b) {
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->index, index);
    EXPECT_EQ(value->id, id);
    EXPECT_EQ(value->component, component);
    EXPECT_EQ(value->a, a);
    EXPECT_EQ(value->b, b);
}

// A stress of 200 at node 101 against 200.5: 0.5 apart, 0.5 / 200.5 relatively.
void PlantHalf(DiffModel&, DiffModel& b) {
    SetAtNode(b, kStress, 101, 0, 200.5f);
}
const double kRel = 0.5 / 200.5;

std::string Text(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.17g", value);
    return text;
}

// b four floats above a.
void PlantUlps(DiffModel&, DiffModel& b) {
    float v = 225.0f;
    for (int k = 0; k < 4; ++k) v = std::nextafter(v, 1e9f);
    SetAtNode(b, kStress, 103, 0, v);
}

const Planted kCases[] = {
    {"Identical",
     [](DiffModel&, DiffModel&) {},
     {},
     0,
     [](const DiffReport& r) {
         EXPECT_TRUE(r.Equal());
         EXPECT_EQ(r.arraysCompared, 9u);
         // 36 coordinates, 12 ids, 6 lengths, 24 references, 6 ids, 12 + 36 + 6 + 5 results
         EXPECT_EQ(r.valuesCompared, 143u);
     }},
    {"CompressedCopy", [](DiffModel&, DiffModel& b) { b.compressed = true; }, {}, 0},
    {"ReorderedMeshByIds",
     [](DiffModel& a, DiffModel& b) { b = Reordered(a, kNodeOrder, kElementOrder); },
     {},
     0,
     [](const DiffReport& r) { EXPECT_EQ(r.valuesCompared, 143u); }},
    {"ReorderedMeshByOrder",
     [](DiffModel& a, DiffModel& b) { b = Reordered(a, kNodeOrder, kElementOrder); },
     {"--match", "order"},
     1,
     [](const DiffReport& r) { EXPECT_EQ(r.arrays.size(), 7u); }},
    {"StressAtOneNode",
     PlantHalf,
     {},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.key.result, "Stress");
         EXPECT_EQ(d.key.instance, "Step 1");
         EXPECT_EQ(d.idKind, "node");
         EXPECT_EQ(d.compared, 12u);
         EXPECT_EQ(d.differing, 1u);
         ExpectPlace(d.maxAbs, 0, 101, 0, 200, 200.5);
         EXPECT_DOUBLE_EQ(d.maxAbs->abs, 0.5);
         EXPECT_DOUBLE_EQ(d.maxRel->rel, kRel);
         ASSERT_EQ(d.first.size(), 1u);
         ExpectPlace(d.first[0], 0, 101, 0, 200, 200.5);
     }},
    {"DisplacementComponentAfterReorder",
     [](DiffModel& a, DiffModel& b) {
         b = Reordered(a, kNodeOrder, kElementOrder);
         SetAtNode(b, kDisplacement, 110, 2, 5.0f);
     },
     {},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.key.result, "Displacement");
         // Node 110 is A's tenth node: its third component is value 9 * 3 + 2.
         ExpectPlace(d.maxAbs, 29, 110, 2, 0.001f * 9 - 0.0005f * 2, 5.0f);
     }},
    {"EnergyOfOneElementAfterReorder",
     [](DiffModel& a, DiffModel& b) {
         b = Reordered(a, kNodeOrder, kElementOrder);
         b.Result(kEnergy).values[3] = -1;  // B's fourth element is A's fifth, id 5
     },
     {},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.idKind, "element");
         ExpectPlace(d.maxAbs, 4, 5, 0, 7.5, -1);
     }},
    {"ConnectivityOfOneElementAfterReorder",
     [](DiffModel& a, DiffModel& b) {
         b = Reordered(a, kNodeOrder, kElementOrder);
         b.connectivity[3 * 4 + 2] = 112;  // B's fourth element, A's fifth (element id 5)
     },
     {"--atol", "100"},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.key.result, "Connectivity");
         EXPECT_FALSE(d.isFloat);
         ExpectPlace(d.maxAbs, 4 * 4 + 2, 5, 2, 111, 112);
     }},
    {"ElementOfAnotherLength",
     [](DiffModel&, DiffModel& b) {
         b.lengths[1] = 3;
         b.connectivity.erase(b.connectivity.begin() + 7);
     },
     {},
     1,
     [](const DiffReport& r) {
         ASSERT_EQ(r.arrays.size(), 2u);
         EXPECT_EQ(r.arrays[0].key.result, "Polylength");
         const auto& c = r.arrays[1];
         EXPECT_EQ(c.key.result, "Connectivity");
         EXPECT_EQ(c.compared, 23u);
         EXPECT_EQ(c.differing, 0u);
         EXPECT_EQ(c.unpaired, 1u);  // the reference element 2 lacks in B
         EXPECT_TRUE(c.first.empty());
     }},
    {"NodeIdOnlyInEach",
     [](DiffModel&, DiffModel& b) {
         b.nodeIds[NodeAt(b, 108)] = 999;
         b.nodeIds[NodeAt(b, 109)] = 998;
     },
     {"--max-report", "1"},
     1,
     [](const DiffReport& r) {
         ASSERT_EQ(r.ids.size(), 1u);
         EXPECT_EQ(r.ids[0].what, "node");
         EXPECT_EQ(r.ids[0].onlyInACount, 2u);
         EXPECT_EQ(r.ids[0].onlyInA, std::vector<int64_t>{108});
         EXPECT_EQ(r.ids[0].onlyInBCount, 2u);
         EXPECT_EQ(r.ids[0].onlyInB, std::vector<int64_t>{999});
         // The other nodes still compare, and equal.
         EXPECT_TRUE(r.arrays.empty());
     }},
    {"ElementIdOnlyInB",
     [](DiffModel&, DiffModel& b) { b.elementIds[5] = 60; },
     {},
     1,
     [](const DiffReport& r) {
         ASSERT_EQ(r.ids.size(), 1u);
         EXPECT_EQ(r.ids[0].what, "element");
         EXPECT_EQ(r.ids[0].onlyInA, std::vector<int64_t>{6});
         EXPECT_EQ(r.ids[0].onlyInB, std::vector<int64_t>{60});
     }},
    {"DuplicateNodeIdsFallBackToOrder",
     [](DiffModel&, DiffModel& b) { b.nodeIds[1] = 101; },
     {},
     1,
     [](const DiffReport& r) {
         ASSERT_EQ(r.notes.size(), 1u);
         ASSERT_EQ(r.arrays.size(), 1u);
         EXPECT_EQ(r.arrays[0].key.result, "Node Ids");
     }},
    {"EntryChanged",
     [](DiffModel&, DiffModel& b) { b.comment = "second run"; },
     {},
     1,
     [](const DiffReport& r) {
         ASSERT_FALSE(r.entries.empty());
         for (const auto& e : r.entries) {
             EXPECT_EQ(e.a, "first run");
             EXPECT_EQ(e.b, "second run");
         }
     }},
    {"EntryIgnored",
     [](DiffModel&, DiffModel& b) { b.comment = "second run"; },
     {"--ignore-entry", "Comment*"},
     0},
    {"ArrayRemovedAndAdded",
     [](DiffModel&, DiffModel& b) {
         b.results.erase(b.results.begin());
         b.results.push_back({"Stress\x1EStep 2", std::vector<float>(12, 1.0f), 1});
     },
     {},
     1,
     [](const DiffReport& r) {
         ASSERT_EQ(r.onlyInA.size(), 1u);
         EXPECT_EQ(r.onlyInA[0].instance, "Step 1");
         ASSERT_EQ(r.onlyInB.size(), 1u);
         EXPECT_EQ(r.onlyInB[0].instance, "Step 2");
         EXPECT_TRUE(r.arrays.empty());
     }},
    {"ArrayIgnored", PlantHalf, {"--ignore", "Str*"}, 0},
    {"SizeDiffers",
     [](DiffModel&, DiffModel& b) { b.Result("Load").values.pop_back(); },
     {},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.sizeA, 5u);
         EXPECT_EQ(d.sizeB, 4u);
         EXPECT_EQ(d.compared, 4u);
         EXPECT_EQ(d.differing, 0u);
         EXPECT_FALSE(d.maxAbs.has_value());
     }},
    {"NanEqualsNan",
     [](DiffModel& a, DiffModel& b) {
         a.Result("Load").values[1] = std::nanf("");
         b.Result("Load").values[1] = -std::nanf("7");
     },
     {},
     0},
    {"InfinityOnlyEqualsItself",
     [](DiffModel& a, DiffModel& b) {
         a.Result("Load").values = {INFINITY, -INFINITY, INFINITY, 1, std::nanf("")};
         b.Result("Load").values = {INFINITY, INFINITY, std::numeric_limits<float>::max(), 1, 1};
     },
     {"--atol", "1e300", "--ulps", "100"},
     1,
     [](const DiffReport& r) {
         const auto& d = Only(r);
         EXPECT_EQ(d.differing, 3u);
         EXPECT_EQ(d.maxAbs->index, 1u);
         EXPECT_EQ(d.maxAbs->id, std::nullopt);
         EXPECT_TRUE(std::isinf(d.maxAbs->abs));
     }},
    {"AtolJustAbove", PlantHalf, {"--atol", "0.50001"}, 0},
    {"AtolJustBelow", PlantHalf, {"--atol", "0.49999"}, 1},
    {"RtolJustAbove", PlantHalf, {"--rtol", Text(kRel * 1.0001)}, 0},
    {"RtolJustBelow", PlantHalf, {"--rtol", Text(kRel * 0.9999)}, 1},
    {"UlpsJustAbove", PlantUlps, {"--ulps", "4"}, 0},
    {"UlpsJustBelow", PlantUlps, {"--ulps", "3"}, 1},
    {"PerArrayTolerance", PlantHalf, {"--tolerance", "Str*=atol:0.6"}, 0},
    {"PerArrayToleranceOfAnotherResult", PlantHalf, {"--tolerance", "Disp*=atol:0.6"}, 1},
    {"FirstToleranceMatchWins",
     PlantHalf,
     {"--tolerance", "S*=rtol:1e-9", "--tolerance", "Stress=atol:1"},
     1},
    {"ToleranceKeysLeftOutTakeTheDefaults",
     PlantHalf,
     {"--atol", "1", "--tolerance", "Stress=ulps:2"},
     0},
    {"IntegerArraysAreExact",
     [](DiffModel&, DiffModel& b) { b.connectivity[0] = 102; },
     {"--atol", "10", "--rtol", "1"},
     1},
    {"IdsAreExact",
     [](DiffModel&, DiffModel& b) { b.elementIds[2] = 3.5f; },
     {"--match", "order", "--atol", "10"},
     1},
};

class PlantedDiff : public DiffFixture, public testing::WithParamInterface<Planted> {};

TEST_P(PlantedDiff, StatusAndPlaces) {
    const Planted& planted = GetParam();
    DiffModel a = Plate(), b = Plate();
    planted.plant(a, b);
    const std::string pathA = Write(a, "a.zol"), pathB = Write(b, "b.zol");
    std::vector<std::string> args = planted.args;
    args.insert(args.end(), {pathA, pathB});
    const Outcome outcome = Diff(args);
    EXPECT_EQ(outcome.status, planted.status) << outcome.out << outcome.err;
    EXPECT_EQ(outcome.err, "");
    if (planted.check) planted.check(Report(args));
}

INSTANTIATE_TEST_SUITE_P(Cases, PlantedDiff, testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
