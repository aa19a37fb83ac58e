#include "Mrl/Zol/FileTypes.h"

namespace MrlZol {

namespace {

struct FileType {
    const char* extension;
    bool prefix;  // matches on the first four characters of the extension
    const char* format;
};

constexpr FileType kFileTypes[] = {
    {".op2", false, "Nastran OP2"},
    {".bdf", false, "Nastran BDF"},
    {".inp", false, "Abaqus INP"},
    {".fil", false, "Abaqus FIL"},
    {".odb", false, "ABAQUS ODB"},
    {".rst", false, "ANSYS RST"},
    {".rth", false, "ANSYS RTH"},
    {".neu", false, "PTC/Mechanica Design Study"},
    {".msh", false, "Fluent Mesh"},
    {".cas", false, "Fluent Case"},
    {".res", false, "CFX solution"},
    {".ccm", false, "StarCCM solution"},
    {".ccmp", false, "StarCCM solution"},
    {".ccmt", false, "StarCCM solution"},
    {".ccmg", false, "StarCCM solution"},
    {".dat", false, "Fluent Data"},
    {".case", false, "Ensight Gold"},
    {".k", false, "LS-Dyna Input Deck"},
    {".key", false, "LS-Dyna Input Deck"},
    {".dyn", false, "LS-Dyna Input Deck"},
    {".unv", false, "Ideas Universal"},
    {".bun", false, "Ideas Universal Binary"},
    {".t16", false, "MSC.MARC Binary Post"},
    {".t19", false, "MSC.MARC Formatted Post"},
    {".pat", false, "Patran Neutral"},
    {".out", false, "Patran Neutral"},
    {".STL", false, "Stereolithography Format"},
    {".stl", false, "Stereolithography Format"},
    {".dis", true, "Patran Displacement Result"},
    {".nod", true, "Patran Nodal Result"},
    {".els", true, "Patran Elemental Result"},
    {".cp_hmasl", false, "Hypermesh ASL generic ASCII file"},
};

constexpr const char* kUnknown = "Unknown Format";

}  // namespace

std::string GetFileTypeName(const std::string& path) {
    size_t separator = path.find_last_of("/\\");
    std::string name = separator == std::string::npos ? path : path.substr(separator + 1);
    if (name.compare(0, 6, "d3plot") == 0 && name.size() >= 6) return "LS-Dyna d3plot";
    size_t dot = name.rfind('.');
    if (name.empty() || dot == std::string::npos) return kUnknown;
    std::string extension = name.substr(dot);
    for (const FileType& type : kFileTypes) {
        bool matches = type.prefix ? extension.compare(0, 4, type.extension) == 0
                                   : extension == type.extension;
        if (matches) return type.format;
    }
    return kUnknown;
}

}  // namespace MrlZol
