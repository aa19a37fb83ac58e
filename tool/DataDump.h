#pragma once
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Mrl/Zol/ArrayRecord.h"
#include "OutputBuffer.h"

namespace ZolInfo {

using RecordLists = std::map<std::string, std::vector<size_t>>;

using ArrayRecords = std::vector<MrlZol::ArrayRecord>;

// The text dump of every analysis: element sets, results, instances, mesh and values.
void WriteDataDump(ArrayRecords& records, std::ostream& stream);
void WriteAnalysisDump(ArrayRecords& records, OutputBuffer& out, const std::string& analysisName,
                       const std::vector<size_t>& indices);
void WriteMeshDump(ArrayRecords& records, OutputBuffer& out, const std::vector<size_t>& indices);
void WriteResultValues(ArrayRecords& records, OutputBuffer& out, const RecordLists& byInstance,
                       size_t nodeCount);

}  // namespace ZolInfo
