// Writes examples/cast-wheel.zol: a cast wheel of hexahedra (hub, a web with six lightening
// holes, a rim with flanges) in two analyses. "Static" holds the deformation and stress under a
// ground contact load; "Transient" holds twelve time steps of the ringing after an impact on
// the rim. The fields are made up, smooth and of a plausible shape; they are rounded to four
// digits, as solvers' outputs usually are, which also lets the blocks pack well.
#include <cmath>
#include <cstdint>
#include <iostream>
#include <numbers>
#include <string>
#include <vector>

#include "ZolFileBuilder.h"

using namespace ZolTest;

namespace {

constexpr double kPi = std::numbers::pi;
constexpr int kSegments = 72;  // around the axis, 5 degrees each
constexpr int kSteps = 12;
constexpr double kStep = 0.0005;  // s
constexpr double kLoadAngle = -kPi / 2;
// Grid lines of the profile (radius r, axial z, in mm); a part is a box of cells of it.
const std::vector<double> kR = {20,  25,  30,  35,  40,  45,  50,  55,  60,  65,  70,
                                75,  80,  85,  90,  95,  100, 105, 110, 115, 120, 125,
                                130, 135, 140, 145, 150, 155, 160, 165, 170, 175};
const std::vector<double> kZ = {-50, -46, -42, -36, -30, -24, -18, -12, -6, -2,
                                2,   6,   12,  18,  24,  30,  36,  42,  46, 50};

struct Box {
    double r0, r1, z0, z1;
};
struct PartShape {
    std::string name;
    std::vector<Box> boxes;
};

const std::vector<PartShape> kParts = {
    {"Hub", {{20, 45, -30, 30}}},
    {"Web", {{45, 150, -6, 6}}},
    {"Rim", {{150, 165, -50, 50}, {165, 175, -50, -42}, {165, 175, 42, 50}}},
};

struct HoleCentre {
    double r, angle, radius;
};

std::vector<HoleCentre> Holes() {
    std::vector<HoleCentre> holes;
    for (int k = 0; k < 6; ++k) holes.push_back({97.5, kPi / 6 + k * kPi / 3, 27.0});
    return holes;
}

double Angle(int segment) {
    return 2 * kPi * segment / kSegments;
}

bool InHole(double r, double angle) {
    for (const HoleCentre& hole : Holes()) {
        const double dx = r * std::cos(angle) - hole.r * std::cos(hole.angle);
        const double dy = r * std::sin(angle) - hole.r * std::sin(hole.angle);
        if (dx * dx + dy * dy < hole.radius * hole.radius) return true;
    }
    return false;
}

// The hole nearest to a point, and the point's distance from its edge (0 inside).
const HoleCentre& NearestHole(double x, double y, double& fromEdge) {
    static const std::vector<HoleCentre> holes = Holes();
    const HoleCentre* nearest = &holes[0];
    fromEdge = 1e9;
    for (const HoleCentre& hole : holes) {
        const double d =
            std::hypot(x - hole.r * std::cos(hole.angle), y - hole.r * std::sin(hole.angle)) -
            hole.radius;
        if (d < fromEdge) {
            fromEdge = d;
            nearest = &hole;
        }
    }
    fromEdge = std::max(0.0, fromEdge);
    return *nearest;
}

double FromHoles(double r, double angle) {
    double fromEdge = 0;
    NearestHole(r * std::cos(angle), r * std::sin(angle), fromEdge);
    return fromEdge;
}

// An angle difference brought into (-pi, pi].
double Around(double a) {
    return std::remainder(a, 2 * kPi);
}

float Round4(double v) {
    if (v == 0) return 0;
    const double scale = std::pow(10.0, 3 - std::floor(std::log10(std::fabs(v))));
    return static_cast<float>(std::round(v * scale) / scale);
}

// One part's mesh: nodes keyed by (segment, profile node), ids from those.
struct Mesh {
    std::vector<float> coordinates, nodeIds, elementIds;
    std::vector<uint32_t> lengths, connectivity;
    std::vector<double> r, z, angle;  // of each node
};

uint32_t NodeId(int segment, size_t i, size_t j) {
    return static_cast<uint32_t>(1 + (segment % kSegments) * 1000 + i * kZ.size() + j);
}

Mesh MakeMesh(const PartShape& part, uint32_t firstElementId) {
    Mesh mesh;
    std::vector<int> used(kSegments * 1000, -1);
    std::vector<bool> holeEdge(kSegments * 1000, false);
    auto node = [&](int segment, size_t i, size_t j) {
        const uint32_t id = NodeId(segment, i, j);
        if (used[id - 1] < 0) {
            used[id - 1] = static_cast<int>(mesh.nodeIds.size());
            const double a = Angle(segment);
            mesh.nodeIds.push_back(static_cast<float>(id));
            mesh.coordinates.insert(
                mesh.coordinates.end(),
                {float(kR[i] * std::cos(a)), float(kR[i] * std::sin(a)), float(kZ[j])});
            mesh.r.push_back(kR[i]);
            mesh.z.push_back(kZ[j]);
            mesh.angle.push_back(a);
        }
        return id;
    };
    uint32_t elementId = firstElementId;
    for (int s = 0; s < kSegments; ++s) {
        for (const Box& box : part.boxes) {
            for (size_t i = 0; i + 1 < kR.size(); ++i) {
                if (kR[i] < box.r0 || kR[i + 1] > box.r1) continue;
                for (size_t j = 0; j + 1 < kZ.size(); ++j) {
                    if (kZ[j] < box.z0 || kZ[j + 1] > box.z1) continue;
                    const double middle = Angle(s) + kPi / kSegments;
                    if (InHole(0.5 * (kR[i] + kR[i + 1]), middle)) {
                        for (int ds = 0; ds < 2; ++ds) {
                            for (size_t di = 0; di < 2; ++di) {
                                for (size_t dj = 0; dj < 2; ++dj) {
                                    holeEdge[NodeId(s + ds, i + di, j + dj) - 1] = true;
                                }
                            }
                        }
                        continue;
                    }
                    // VTK's order: the face at z0 counter-clockwise seen from +z (r, then the
                    // angle), then the face at z1.
                    mesh.connectivity.insert(
                        mesh.connectivity.end(),
                        {node(s, i, j), node(s, i + 1, j), node(s + 1, i + 1, j), node(s + 1, i, j),
                         node(s, i, j + 1), node(s, i + 1, j + 1), node(s + 1, i + 1, j + 1),
                         node(s + 1, i, j + 1)});
                    mesh.lengths.push_back(8);
                    mesh.elementIds.push_back(static_cast<float>(elementId++));
                }
            }
        }
    }
    // Nodes that the cut cells leave on a hole's edge go onto its circle, so that the holes
    // are round rather than stepped.
    for (size_t id = 0; id < used.size(); ++id) {
        if (used[id] < 0 || !holeEdge[id]) continue;
        const auto n = static_cast<size_t>(used[id]);
        const double x = mesh.coordinates[3 * n], y = mesh.coordinates[3 * n + 1];
        double fromEdge = 0;
        const HoleCentre& hole = NearestHole(x, y, fromEdge);
        const double cx = hole.r * std::cos(hole.angle), cy = hole.r * std::sin(hole.angle);
        const double d = std::hypot(x - cx, y - cy);
        const double nx = cx + (x - cx) * hole.radius / d, ny = cy + (y - cy) * hole.radius / d;
        mesh.coordinates[3 * n] = static_cast<float>(nx);
        mesh.coordinates[3 * n + 1] = static_cast<float>(ny);
        mesh.r[n] = std::hypot(nx, ny);
        mesh.angle[n] = std::atan2(ny, nx);
    }
    return mesh;
}

// Static: the ground pushes the rim's bottom up, the bore is held.
void StaticFields(const Mesh& mesh, std::vector<float>& displacement, std::vector<float>& stress,
                  std::vector<float>& vonMises) {
    for (size_t n = 0; n < mesh.r.size(); ++n) {
        const double r = mesh.r[n], z = mesh.z[n], a = mesh.angle[n];
        const double reach = std::pow((r - 20) / 155, 1.5);
        const double near = 0.5 + 0.5 * std::cos(Around(a - kLoadAngle));
        const double up = 0.35 * reach * near * near;
        displacement.insert(displacement.end(), {Round4(0.02 * reach * std::sin(2 * a)), Round4(up),
                                                 Round4(0.04 * reach * near * z / 50)});
        const double contact =
            std::exp(-std::pow(Around(a - kLoadAngle), 2) / 0.02 - std::pow(r - 175, 2) / 300);
        const double root = std::exp(-std::fabs(r - 45) / 12) * (0.4 + 0.6 * near);
        const double hole = std::exp(-FromHoles(r, a) / 5) * (0.3 + 0.7 * near);
        const double bending = 0.15 * near * (1 - std::fabs(z) / 60);
        const double vm = 28 + 160 * contact + 95 * root + 110 * hole + 40 * bending;
        vonMises.push_back(Round4(vm));
        const double c = std::cos(a), s = std::sin(a);
        stress.insert(stress.end(),
                      {Round4(-vm * (0.2 + 0.6 * s * s)), Round4(-vm * (0.2 + 0.6 * c * c)),
                       Round4(0.1 * vm * z / 50), Round4(0.35 * vm * s * c), Round4(0.05 * vm * s),
                       Round4(0.05 * vm * c)});
    }
}

// Transient: the rim rings in its two-diameter mode after a knock, and the ringing dies down.
void TransientFields(const Mesh& mesh, int step, std::vector<float>& displacement,
                     std::vector<float>& vonMises) {
    const double t = (step + 1) * kStep;
    const double ring = std::exp(-t / 0.004) * std::sin(2 * kPi * 310 * t);
    for (size_t n = 0; n < mesh.r.size(); ++n) {
        const double r = mesh.r[n], z = mesh.z[n], a = mesh.angle[n];
        const double shape = std::pow((r - 20) / 155, 2) * std::cos(2 * (a - kLoadAngle));
        const double radial = 0.25 * ring * shape;
        displacement.insert(displacement.end(),
                            {Round4(radial * std::cos(a)), Round4(radial * std::sin(a)),
                             Round4(0.6 * ring * shape * (1 + z / 200))});
        const double curvature = 4 * (r - 20) / 155 * (1 - (r - 20) / 155);
        const double hole = std::exp(-FromHoles(r, a) / 5);
        vonMises.push_back(Round4(std::fabs(ring) * (60 * curvature + 70 * hole) *
                                      std::fabs(std::cos(2 * (a - kLoadAngle))) +
                                  6));
    }
}

GeomItem Floats(ModelBuilder& model, std::string name, uint32_t kind,
                const std::vector<float>& values, uint8_t components,
                std::vector<Attr> attributes = {}) {
    GeomItem item = model.HeavyItem(std::move(name), kind, FloatBits(values), components);
    item.attributes = std::move(attributes);
    return item;
}

std::vector<GeomItem> MeshItems(ModelBuilder& model, const Mesh& mesh) {
    return {Floats(model, "Coordinates", 0, mesh.coordinates, 3),
            Floats(model, "Node Ids", 12, mesh.nodeIds, 1),
            model.HeavyItem("Polylength", 5, mesh.lengths, 1),
            model.HeavyItem("Connectivity", 4, mesh.connectivity, 1),
            Floats(model, "Element Ids", 12, mesh.elementIds, 1)};
}

std::string TimeName(int step) {
    std::string text = std::to_string((step + 1) * kStep);
    text.erase(text.find_last_not_of('0') + 1);
    return "Time " + text;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " <output.zol>\n";
        return 1;
    }
    std::vector<Mesh> meshes;
    uint32_t firstElementId = 10001, nodes = 0, elements = 0;
    for (const PartShape& part : kParts) {
        meshes.push_back(MakeMesh(part, firstElementId));
        firstElementId += 10000;
        nodes += static_cast<uint32_t>(meshes.back().nodeIds.size());
        elements += static_cast<uint32_t>(meshes.back().lengths.size());
    }

    ModelBuilder model;
    model.globalInformation.Raw(GlobalInformation(
        {{"0.7", {"Translator", "3.2", "0.7", "2024-05-14", "", "analyst", "cast wheel runs"}}}));
    GroupData root;
    root.attributes = {Attr::Text("Model File", "/runs/cast-wheel/wheel.odb"),
                       Attr::Unsigned("Model File Size", 48000000),
                       Attr::Unsigned("Number of Nodes in the Model", nodes),
                       Attr::Unsigned("Number of Elements in the Model", elements)};
    const auto parts = static_cast<uint32_t>(kParts.size());
    // Ids: root 1; each analysis a group, its "Geometry" group, and a shape and Geometry per
    // part.
    const uint32_t perAnalysis = 2 + 2 * parts;
    const uint32_t transient = 2 + perAnalysis;
    model.Group({1, 0, 0, 0, 2, transient, "cast-wheel", "Group", "0.4"}, root);
    for (uint32_t a = 0; a < 2; ++a) {
        const uint32_t id = 2 + a * perAnalysis, shapes = id + 2;
        model.Group({id, 1, a == 0 ? 0u : 2u, a == 0 ? transient : 0u, id + 1, id + 1,
                     a == 0 ? "Static" : "Transient", "Group", "0.4"});
        model.Group(
            {id + 1, id, 0, 0, shapes, shapes + 2 * (parts - 1), "Geometry", "Group", "0.4"});
        for (uint32_t p = 0; p < parts; ++p) {
            const uint32_t shape = shapes + 2 * p;
            const Mesh& mesh = meshes[p];
            model.Shape({shape, id + 1, p == 0 ? 0 : shape - 2, p + 1 == parts ? 0 : shape + 2,
                         shape + 1, shape + 1, kParts[p].name, "Shape", "0.2"});
            std::vector<GeomItem> items = MeshItems(model, mesh);
            if (a == 0) {
                std::vector<float> displacement, stress, vonMises;
                StaticFields(mesh, displacement, stress, vonMises);
                const std::vector<Attr> load = {Attr::Text("LoadCase", "Ground contact"),
                                                Attr::Text("Title", "Cast wheel")};
                const std::string step = std::string("\x1E") + "Load Step 1";
                items.push_back(Floats(model, "Displacement" + step, 13, displacement, 3, load));
                items.push_back(Floats(model, "Stress" + step, 12, stress, 6, load));
                items.push_back(Floats(model, "Von Mises Stress" + step, 12, vonMises, 1, load));
            } else {
                for (int s = 0; s < kSteps; ++s) {
                    std::vector<float> displacement, vonMises;
                    TransientFields(mesh, s, displacement, vonMises);
                    const std::vector<Attr> time = {Attr::Float("Time", float((s + 1) * kStep))};
                    const std::string instance = "\x1E" + TimeName(s);
                    items.push_back(
                        Floats(model, "Displacement" + instance, 13, displacement, 3, time));
                    items.push_back(
                        Floats(model, "Von Mises Stress" + instance, 12, vonMises, 1, time));
                }
            }
            model.Geometry({shape + 1, shape, 0, 0, 0, 0, kParts[p].name, "Geometry", "0.7"},
                           items);
        }
    }
    model.Build("1.1");
    ZolFileBuilder file;
    file.Version("1.1");
    model.EmitTo(file, true);
    file.WriteTo(argv[1]);
    std::cout << "wrote " << argv[1] << ": " << nodes << " nodes, " << elements << " hexahedra in "
              << parts << " parts\n";
    return 0;
}
