#pragma once
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "OutputBuffer.h"
#include "ReportWriter.h"

namespace ZolInfo {

using RecordLists = std::map<std::string, std::vector<size_t>>;

// The text dump of every analysis: element sets, results, instances, mesh and values.
void WriteDataDump(ReportWriter& writer, std::ostream& stream);
void WriteAnalysisDump(ReportWriter& writer, OutputBuffer& out, const std::string& analysisName,
                       const std::vector<size_t>& indices);
void WriteMeshDump(ReportWriter& writer, OutputBuffer& out, const std::vector<size_t>& indices);
void WriteResultValues(ReportWriter& writer, OutputBuffer& out, const RecordLists& byInstance,
                       size_t nodeCount);

}  // namespace ZolInfo
