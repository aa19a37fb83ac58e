#include "DataDump.h"

#include <algorithm>

#include "Mrl/Zol/ValueConversion.h"
#include "NumberFormat.h"

namespace ZolInfo {

namespace {

using DataRecord = MrlZol::ArrayRecord;
using MrlZol::TruncateToSigned;

constexpr std::string_view kIndent = "    ";

bool IsMeshName(const std::string& name) {
    return name == "Connectivity" || name == "Coordinates" || name == "Polylength" ||
           name == "Node Ids";
}

void WriteList(OutputBuffer& out, std::string_view head, const std::vector<std::string>& lines) {
    out.Line(head);
    for (const std::string& line : lines) {
        out.Put(kIndent);
        out.Line(line);
    }
    out.Line("");
}

// One column of a value line: record values q*r + c of the rows r, or value r of a
// "Node Ids" record, printed as an integer.
struct Column {
    const DataRecord* record;
    size_t q;
    size_t c;
    bool nodeIds;
};

void WriteValue(OutputBuffer& out, const Column& column, size_t row) {
    const DataRecord& record = *column.record;
    if (column.nodeIds) {
        if (record.isFloat != 0) {
            out.SignedField(TruncateToSigned(record.floatValues[row]), 10);
        } else {
            out.SignedField(static_cast<int32_t>(record.intValues[row]), 10);
        }
        return;
    }
    size_t at = column.q * row + column.c;
    // Integer arrays that reach the columns are printed as the integers they are.
    if (record.isFloat != 0) {
        out.FloatField(record.floatValues[at], 10);
    } else {
        out.UnsignedField(record.intValues[at], 10);
    }
}

}  // namespace

void WriteDataDump(ArrayRecords& records, std::ostream& stream) {
    RecordLists analyses;
    for (size_t i = 0; i < records.size(); ++i) {
        analyses[records[i].analysis].push_back(i);
    }
    OutputBuffer out(stream);
    for (const auto& [name, indices] : analyses) WriteAnalysisDump(records, out, name, indices);
    out.Flush();
}

void WriteAnalysisDump(ArrayRecords& records, OutputBuffer& out, const std::string& analysisName,
                       const std::vector<size_t>& indices) {
    WriteList(out, "Analysis : ", {analysisName});
    WriteList(out, "Element Sets : ", records[indices[0]].elementSets);

    RecordLists byResult, byInstance;
    for (size_t index : indices) {
        const DataRecord& record = records[index];
        if (IsMeshName(record.resultName)) continue;
        byResult[record.resultName].push_back(index);
        byInstance[record.instanceName].push_back(index);
    }
    size_t nodeCount = 0;
    for (size_t index : indices) {
        const DataRecord& record = records[index];
        if (record.resultName != "Node Ids" || !record.instanceName.empty()) continue;
        for (auto& [instance, list] : byInstance) list.insert(list.begin(), index);
        nodeCount = record.Size();
    }
    if (nodeCount != 0) {
        out.Line("Results : ");
        char number[32];
        for (const auto& [result, list] : byResult) {
            out.Put(kIndent);
            out.Put(result);
            out.Put(kIndent);
            out.Line(std::string_view(
                number, FormatUnsigned(number, records[list.front()].Size() / nodeCount) - number));
        }
        out.Line("");
        out.Line("Instances : ");
        for (const auto& [instance, list] : byInstance) {
            out.Put(kIndent);
            out.Line(instance);
        }
        out.Line("");
    }
    WriteMeshDump(records, out, indices);
    if (nodeCount != 0) WriteResultValues(records, out, byInstance, nodeCount);
    for (size_t index : indices) records[index].ReleaseValues();
}

void WriteMeshDump(ArrayRecords& records, OutputBuffer& out, const std::vector<size_t>& indices) {
    DataRecord* nodes = nullptr;
    DataRecord* coordinates = nullptr;
    DataRecord* connectivity = nullptr;
    DataRecord* lengths = nullptr;
    DataRecord* elementIds = nullptr;  // the last record that sets the element count
    for (size_t index : indices) {
        DataRecord& record = records[index];
        if (record.resultName == "Node Ids") {
            nodes = &record;
        } else if (record.resultName == "Coordinates") {
            coordinates = &record;
        } else if (record.resultName == "Connectivity") {
            connectivity = &record;
        } else if (record.resultName == "Polylength") {
            lengths = elementIds = &record;
        } else if (record.resultName == "Element Ids") {
            elementIds = &record;
        }
    }
    // Nodes first, then elements: the coordinates are gone before the connectivity arrives.
    for (DataRecord* record : {nodes, coordinates}) {
        if (record != nullptr) record->LoadValues();
    }
    size_t nodeCount = nodes != nullptr ? nodes->Size() : 0;
    size_t elementCount = elementIds != nullptr ? elementIds->Size() : 0;

    // Only complete lines are printed: a node needs its id and three coordinates, an
    // element its length; nothing is read past the end of an array.
    out.Line("    Coordinates : ");
    size_t printable = nodes != nullptr ? std::min(nodeCount, nodes->floatValues.size()) : 0;
    printable =
        std::min(printable, coordinates != nullptr ? coordinates->floatValues.size() / 3 : 0);
    for (size_t i = 0; i < printable; ++i) {
        out.SignedField(TruncateToSigned(nodes->floatValues[i]), 10);
        for (size_t axis = 0; axis < 3; ++axis) {
            out.FloatField(coordinates->floatValues[3 * i + axis], 10);
        }
        out.Put('\n');
    }
    out.Line("");
    if (coordinates != nullptr) coordinates->ReleaseValues();

    out.Line("    Connectivity : ");
    for (DataRecord* record : {connectivity, lengths}) {
        if (record != nullptr) record->LoadValues();
    }
    size_t elements = lengths != nullptr ? std::min(elementCount, lengths->intValues.size()) : 0;
    const std::vector<uint32_t> none;
    const std::vector<uint32_t>& references =
        connectivity != nullptr ? connectivity->intValues : none;
    uint64_t cursor = 0;
    for (size_t e = 0; e < elements; ++e) {
        uint32_t n = lengths->intValues[e];
        out.UnsignedField(n, 6);
        uint64_t end = std::min<uint64_t>(cursor + n, references.size());
        for (uint64_t k = cursor; k < end; ++k) out.UnsignedField(references[k], 8);
        out.Put('\n');
        cursor += n;
    }
    out.Line("");
    // The node ids serve every value section that follows; the rest can go.
    for (DataRecord* record : {connectivity, lengths}) {
        if (record != nullptr) record->ReleaseValues();
    }
}

void WriteResultValues(ArrayRecords& records, OutputBuffer& out, const RecordLists& byInstance,
                       size_t nodeCount) {
    std::vector<Column> columns;
    for (const auto& [instance, list] : byInstance) {
        out.Line("Data : ");
        if (!instance.empty()) {
            out.Put("    Instance : ");
            out.Line(instance);
        }
        out.Put("    Results: ");
        for (size_t k = 0; k < list.size(); ++k) {
            if (k != 0) out.Put(", ");
            out.Put(records[list[k]].resultName);
        }
        out.Put('\n');
        out.Line("    Values : ");
        columns.clear();
        for (size_t index : list) records[index].LoadValues();
        for (size_t index : list) {
            const DataRecord& record = records[index];
            size_t q = record.Size() / nodeCount;
            bool nodeIds = record.resultName == "Node Ids";
            for (size_t c = 0; c < q; ++c) columns.push_back({&record, q, c, nodeIds});
        }
        for (size_t row = 0; row < nodeCount; ++row) {
            for (const Column& column : columns) WriteValue(out, column, row);
            out.Put('\n');
        }
        out.Line("");
        for (size_t index : list) {
            DataRecord& record = records[index];
            if (record.resultName != "Node Ids") record.ReleaseValues();
        }
    }
}

}  // namespace ZolInfo
