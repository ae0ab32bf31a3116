#include "inspect/finding.h"

#include <algorithm>
#include <utility>

namespace inspect {

const char* level_name(Level level) noexcept {
    switch (level) {
        case Level::Error:
            return "error";
        case Level::Warning:
            return "warning";
        case Level::Note:
            break;
    }
    return "note";
}

void Findings::add(Finding finding) {
    ++counts_[static_cast<std::size_t>(finding.level)];
    const std::uint64_t seen = ++seen_[finding.kind];
    if (per_kind_ != 0 && seen > per_kind_) {
        ++left_out_[finding.kind];
        return;
    }
    list_.push_back(std::move(finding));
}

void Findings::sort() {
    std::stable_sort(list_.begin(), list_.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
}

}  // namespace inspect
