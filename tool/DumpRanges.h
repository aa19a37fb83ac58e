#pragma once
// The lines of the dump's mesh and value sections in ranges formatted on a pool of threads. The
// values are taken from the streams in the order the one-thread writers take them, and each line
// is made by the same fields, so the text is the same.
#include <cstddef>
#include <vector>

#include "OrderedPool.h"
#include "ValueStream.h"

namespace ZolInfo {

// The most fields, and values, a value line may take for its lines to go on the pool.
constexpr size_t kPooledLineMax = 4096;

// `printable` node lines: the id, then three coordinates.
void CoordinateRanges(OrderedPool& pool, ValueStream& ids, ValueStream& xyz, size_t printable);

// `elements` element lines: the node count, then the references, as far as `referenceCount`
// reaches. An element of more references than a range takes is written on the run's thread.
void ConnectivityRanges(OrderedPool& pool, OutputBuffer& out, ValueStream& counts,
                        ValueStream& references, size_t elements, size_t referenceCount);

// One record of a value line: `columns` fields from `perRow` values of its stream a row.
struct RowRecord {
    ValueStream* stream;
    size_t perRow;
    size_t columns;
    bool isFloat;
    bool nodeIds;  // one value a row, printed as an integer in each column
};

// `rows` value lines, of at most kPooledLineMax fields and values each.
void ValueRowRanges(OrderedPool& pool, const std::vector<RowRecord>& records, size_t rows);

}  // namespace ZolInfo
