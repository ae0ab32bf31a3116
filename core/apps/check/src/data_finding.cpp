#include "data_finding.h"

#include <algorithm>
#include <utility>

namespace datacheck {

void DataFindings::add(DataFinding finding) {
    list_.push_back(std::move(finding));
}

std::uint64_t DataFindings::count(Level level) const noexcept {
    return static_cast<std::uint64_t>(
        std::ranges::count_if(list_, [level](const DataFinding& finding) { return finding.level == level; }));
}

}  // namespace datacheck
