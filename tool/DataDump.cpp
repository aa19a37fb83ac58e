#include "DataDump.h"

#include <algorithm>
#include <cstring>

#include "DumpRanges.h"
#include "Mrl/Zol/ValueConversion.h"
#include "NumberFormat.h"
#include "OrderedPool.h"
#include "ValueStream.h"

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

// One column of a value line: values q*r + c of the rows r of its record, or value r of a
// "Node Ids" record, printed as an integer. The columns of one record share its stream and
// take its values in row order.
struct Column {
    const DataRecord* record;
    ValueStream* stream;
    bool first;  // the record's first column, which takes the row's values from the stream
    bool nodeIds;
};

void WriteValue(OutputBuffer& out, const Column& column, uint32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    if (column.nodeIds) {
        out.SignedField(
            column.record->isFloat ? TruncateToSigned(value) : static_cast<int32_t>(bits), 10);
        return;
    }
    // Integer arrays that reach the columns are printed as the integers they are.
    if (column.record->isFloat) {
        out.FloatField(value, 10);
    } else {
        out.UnsignedField(bits, 10);
    }
}

// The number of values of a record that its kind lets a mesh line read.
size_t FloatCount(const DataRecord* record) {
    return record != nullptr && record->isFloat ? record->Size() : 0;
}

size_t IntCount(const DataRecord* record) {
    return record != nullptr && !record->isFloat ? record->Size() : 0;
}

// The arrays of one value section stream side by side. Arrays outside the block that holds
// most of their bytes are read whole first, within a limit; past it the rows go in chunks, each
// array's share of a chunk read in the order of the blocks, so that one block and the chunk are
// in memory at a time, at the cost of unpacking blocks once per chunk.
void WriteValueRows(OutputBuffer& out, OrderedPool* pool, const std::vector<DataRecord*>& used,
                    size_t nodeCount) {
    constexpr size_t kChunkBytes = 32 << 20;
    bool chunked = !ReadOutsideMainBlock(used, kChunkBytes);
    std::vector<ValueStream> streams;
    std::vector<size_t> perRow;  // values each record gives a row
    std::vector<Column> columns;
    streams.reserve(used.size());
    size_t rowBytes = 0;
    for (const DataRecord* record : used) {
        streams.emplace_back(record);
        size_t q = record->Size() / nodeCount;
        bool nodeIds = record->resultName == "Node Ids";
        perRow.push_back(nodeIds ? std::min<size_t>(q, 1) : q);
        rowBytes += perRow.back() * 4;
        for (size_t c = 0; c < q; ++c) {
            columns.push_back({record, &streams.back(), c == 0, nodeIds});
        }
    }
    std::vector<size_t> byBlock(used.size());
    for (size_t k = 0; k < used.size(); ++k) byBlock[k] = k;
    std::stable_sort(byBlock.begin(), byBlock.end(), [&](size_t a, size_t b) {
        return used[a]->BlockEntry() < used[b]->BlockEntry();
    });
    size_t chunk =
        chunked ? std::max<size_t>(1, kChunkBytes / std::max<size_t>(rowBytes, 1)) : nodeCount;
    if (pool != nullptr && (columns.size() > kPooledLineMax || rowBytes / 4 > kPooledLineMax)) {
        pool = nullptr;  // lines that wide stream on the run's thread
    }
    std::vector<RowRecord> rowRecords;
    for (size_t k = 0; pool != nullptr && k < used.size(); ++k) {
        const DataRecord* record = used[k];
        rowRecords.push_back({&streams[k], perRow[k], record->Size() / nodeCount, record->isFloat,
                              record->resultName == "Node Ids"});
    }
    uint32_t bits = 0;
    for (size_t first = 0; first < nodeCount; first += chunk) {
        size_t rows = std::min(chunk, nodeCount - first);
        if (chunked) {
            for (size_t k : byBlock) streams[k].Fill(rows * perRow[k]);
        }
        if (pool != nullptr) {
            ValueRowRanges(*pool, rowRecords, rows);
            continue;
        }
        for (size_t row = 0; row < rows; ++row) {
            for (const Column& column : columns) {
                // A "Node Ids" record gives value r to each of its columns.
                if (column.first || !column.nodeIds) bits = column.stream->Next();
                WriteValue(out, column, bits);
            }
            out.Put('\n');
        }
    }
}

}  // namespace

void WriteDataDump(ArrayRecords& records, std::ostream& stream) {
    RecordLists analyses;
    for (size_t i = 0; i < records.size(); ++i) {
        analyses[records[i].analysis].push_back(i);
    }
    OutputBuffer out(stream);
    {
        const unsigned threads = DumpThreads();
        std::unique_ptr<OrderedPool> pool;
        if (threads > 1) pool = std::make_unique<OrderedPool>(out, threads);
        for (const auto& [name, indices] : analyses) {
            WriteAnalysisDump(records, out, pool.get(), name, indices);
        }
    }
    out.Flush();
}

void WriteAnalysisDump(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                       const std::string& analysisName, const std::vector<size_t>& indices) {
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
    WriteMeshDump(records, out, pool, indices);
    if (nodeCount != 0) WriteResultValues(records, out, pool, byInstance, nodeCount);
    for (size_t index : indices) records[index].ReleaseValues();
}

void WriteMeshDump(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                   const std::vector<size_t>& indices) {
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
    size_t nodeCount = nodes != nullptr ? nodes->Size() : 0;
    size_t elementCount = elementIds != nullptr ? elementIds->Size() : 0;

    // Only complete lines are printed: a node needs its id and three coordinates, an
    // element its length; nothing is read past the end of an array.
    out.Line("    Coordinates : ");
    ReadOutsideMainBlock({nodes, coordinates});
    size_t printable = std::min({nodeCount, FloatCount(nodes), FloatCount(coordinates) / 3});
    ValueStream ids(nodes), xyz(coordinates);
    if (pool != nullptr) {
        CoordinateRanges(*pool, ids, xyz, printable);
        pool->Drain();
        printable = 0;
    }
    for (size_t i = 0; i < printable; ++i) {
        out.SignedField(TruncateToSigned(ids.NextFloat()), 10);
        for (size_t axis = 0; axis < 3; ++axis) out.FloatField(xyz.NextFloat(), 10);
        out.Put('\n');
    }
    out.Line("");
    // The node ids are read again by the value sections, which may find them in the block
    // they stream from: held here, they would lie beside every block the dump loads.
    for (DataRecord* record : {nodes, coordinates}) {
        if (record != nullptr) record->ReleaseValues();
    }

    out.Line("    Connectivity : ");
    ReadOutsideMainBlock({lengths, connectivity});
    size_t elements = std::min(elementCount, IntCount(lengths));
    size_t referenceCount = IntCount(connectivity);
    ValueStream counts(lengths), references(connectivity);
    if (pool != nullptr) {
        ConnectivityRanges(*pool, out, counts, references, elements, referenceCount);
        pool->Drain();
        elements = 0;
    }
    uint64_t cursor = 0;
    for (size_t e = 0; e < elements; ++e) {
        uint32_t n = counts.Next();
        out.UnsignedField(n, 6);
        uint64_t end = std::min<uint64_t>(cursor + n, referenceCount);
        for (uint64_t k = cursor; k < end; ++k) out.UnsignedField(references.Next(), 8);
        out.Put('\n');
        cursor += n;
    }
    out.Line("");
    for (DataRecord* record : {connectivity, lengths}) {
        if (record != nullptr) record->ReleaseValues();
    }
}

void WriteResultValues(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                       const RecordLists& byInstance, size_t nodeCount) {
    std::vector<DataRecord*> used;
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
        used.clear();
        for (size_t index : list) used.push_back(&records[index]);
        WriteValueRows(out, pool, used, nodeCount);
        if (pool != nullptr) pool->Drain();
        out.Line("");
        for (DataRecord* record : used) record->ReleaseValues();
    }
}

}  // namespace ZolInfo
