#include "DiffModel.h"

#include <algorithm>
#include <stdexcept>

namespace ZolTest {

namespace {

constexpr size_t kColumns = 4, kRows = 3;

template <class T>
std::vector<T> Gather(const std::vector<T>& values, const std::vector<size_t>& order,
                      size_t width) {
    std::vector<T> gathered;
    for (size_t k : order) {
        gathered.insert(gathered.end(), values.begin() + k * width,
                        values.begin() + (k + 1) * width);
    }
    return gathered;
}

}  // namespace

DiffResult& DiffModel::Result(const std::string& name) {
    for (DiffResult& result : results) {
        if (result.name == name) return result;
    }
    throw std::invalid_argument("no result " + name);
}

Bytes DiffModel::Build() const {
    ModelBuilder model;
    model.globalInformation.Raw(
        GlobalInformation({{"0.7", {"Solver", "2.0", "0.7", date, "", "analyst", comment}}}));
    GroupData root;
    root.attributes = {
        Attr::Text("Model File", "plate.odb"),
        Attr::Unsigned("Number of Nodes in the Model", static_cast<uint32_t>(nodeIds.size()))};
    model.Group({1, 0, 0, 0, 2, 2, "plate", "Group", "0.4"}, root);
    model.Group({2, 1, 0, 0, 3, 3, "Static", "Group", "0.4"});
    model.Group({3, 2, 0, 0, 4, 4, "Geometry", "Group", "0.4"});
    model.Shape({4, 3, 0, 0, 5, 5, "Plate", "Shape", "0.2"});
    std::vector<GeomItem> items = {model.HeavyItem("Coordinates", 0, FloatBits(coordinates), 3),
                                   model.HeavyItem("Node Ids", 12, FloatBits(nodeIds), 1),
                                   model.HeavyItem("Polylength", 5, lengths, 1),
                                   model.HeavyItem("Connectivity", 4, connectivity, 1)};
    if (!elementIds.empty())
        items.push_back(model.HeavyItem("Element Ids", 12, FloatBits(elementIds), 1));
    for (const DiffResult& result : results) {
        items.push_back(
            model.HeavyItem(result.name, 12, FloatBits(result.values), result.components));
    }
    model.Geometry({5, 4, 0, 0, 0, 0, "Plate", "Geometry", "0.7"}, items);
    ZolFileBuilder file;
    model.EmitTo(file, compressed);
    return file.Build();
}

DiffModel Plate() {
    DiffModel model;
    for (size_t row = 0; row < kRows; ++row) {
        for (size_t column = 0; column < kColumns; ++column) {
            model.nodeIds.push_back(static_cast<float>(101 + row * kColumns + column));
            model.coordinates.insert(model.coordinates.end(), {float(column), float(row), 0.0f});
        }
    }
    for (size_t row = 0; row + 1 < kRows; ++row) {
        for (size_t column = 0; column + 1 < kColumns; ++column) {
            const auto corner = static_cast<uint32_t>(101 + row * kColumns + column);
            model.lengths.push_back(4);
            model.connectivity.insert(
                model.connectivity.end(),
                {corner, corner + 1, corner + 1 + uint32_t{kColumns}, corner + uint32_t{kColumns}});
            model.elementIds.push_back(static_cast<float>(model.lengths.size()));
        }
    }
    DiffResult stress{"Stress\x1EStep 1", {}, 1}, displacement{"Displacement\x1EStep 1", {}, 3};
    for (size_t i = 0; i < model.Nodes(); ++i) {
        stress.values.push_back(200.0f + 12.5f * float(i));
        for (int axis = 0; axis < 3; ++axis) {
            displacement.values.push_back(0.001f * float(i) - 0.0005f * float(axis));
        }
    }
    DiffResult energy{"Energy\x1EStep 1", {}, 1, true};
    for (size_t e = 0; e < model.lengths.size(); ++e) energy.values.push_back(1.5f * float(e + 1));
    DiffResult load{"Load", {1, 2, 3, 4, 5}, 1, false, true};
    model.results = {stress, displacement, energy, load};
    return model;
}

DiffModel Reordered(const DiffModel& model, const std::vector<size_t>& nodeOrder,
                    const std::vector<size_t>& elementOrder) {
    DiffModel reordered = model;
    reordered.nodeIds = Gather(model.nodeIds, nodeOrder, 1);
    reordered.coordinates = Gather(model.coordinates, nodeOrder, 3);
    reordered.elementIds = Gather(model.elementIds, elementOrder, 1);
    reordered.lengths = Gather(model.lengths, elementOrder, 1);
    reordered.connectivity.clear();
    std::vector<size_t> offsets = {0};
    for (uint32_t length : model.lengths) offsets.push_back(offsets.back() + length);
    for (size_t e : elementOrder) {
        reordered.connectivity.insert(reordered.connectivity.end(),
                                      model.connectivity.begin() + offsets[e],
                                      model.connectivity.begin() + offsets[e + 1]);
    }
    for (DiffResult& result : reordered.results) {
        if (result.loose) continue;
        const std::vector<size_t>& order = result.perElement ? elementOrder : nodeOrder;
        result.values = Gather(result.values, order, result.values.size() / order.size());
    }
    return reordered;
}

size_t NodeAt(const DiffModel& model, float id) {
    return static_cast<size_t>(std::find(model.nodeIds.begin(), model.nodeIds.end(), id) -
                               model.nodeIds.begin());
}

}  // namespace ZolTest
