#pragma once
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"
#include "OrderedPool.h"
#include "OutputBuffer.h"

namespace ZolInfo {

using RecordLists = std::map<std::string, std::vector<size_t>>;

using ArrayRecords = std::vector<MrlZol::ArrayRecord>;

// The text dump of every analysis: element sets, results, instances, mesh and values. The
// lines of the mesh and value sections are formatted on DumpThreads() threads; a null pool
// formats them on the caller's.
void WriteDataDump(ArrayRecords& records, std::ostream& stream);
void WriteAnalysisDump(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                       const std::string& analysisName, const std::vector<size_t>& indices);
void WriteMeshDump(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                   const std::vector<size_t>& indices);
void WriteResultValues(ArrayRecords& records, OutputBuffer& out, OrderedPool* pool,
                       const RecordLists& byInstance, size_t nodeCount);

}  // namespace ZolInfo
