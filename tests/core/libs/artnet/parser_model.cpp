#include "parser_model.h"

#include <algorithm>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 8> kIdentifier{0x41, 0x72, 0x74, 0x2D, 0x4E, 0x65, 0x74, 0x00};
constexpr std::size_t kHeader = 10;

void swap_at(Bytes& record, std::size_t offset) {
    std::swap(record.at(offset), record.at(offset + 1));
}

}  // namespace

void ParserModel::lay_out(const Bytes& input) {
    blocks_.clear();
    Block block;
    block.bytes = memory_;
    for (const std::uint8_t byte : input) {
        if (block.count == kBlock) {
            blocks_.push_back(block);
            block.count = 0;
        }
        block.bytes.at(block.count) = byte;
        ++block.count;
    }
    if (block.count > 0) {
        blocks_.push_back(block);
    }
}

bool ParserModel::find_identifier() {
    for (; block_ < blocks_.size(); ++block_, offset_ = 0) {
        for (; offset_ < kBlock; ++offset_) {
            if (blocks_.at(block_).bytes.at(offset_) != kIdentifier.at(matched_)) {
                if (matched_ > 0 && offset_ + kIdentifier.size() <= kBlock &&
                    std::equal(kIdentifier.begin(), kIdentifier.end(),
                               &blocks_.at(block_).bytes.at(offset_))) {
                    ++met_["identifier hidden by the byte before"];
                }
                matched_ = 0;
                continue;
            }
            if (matched_ == 0) {
                begin_block_ = block_;
                begin_offset_ = offset_;
            }
            ++matched_;
            if (matched_ == kIdentifier.size()) {
                matched_ = 0;
                ++offset_;
                const std::size_t count = blocks_.at(block_).count;
                if (begin_block_ != block_) {
                    ++met_["identifier split between blocks"];
                }
                if (offset_ > count) {
                    ++met_[begin_block_ == block_ && begin_offset_ >= count
                               ? "identifier in the stale tail"
                               : "identifier completed by stale bytes"];
                }
                return true;
            }
        }
    }
    return false;
}

ParserModel::Take ParserModel::take(std::size_t n, Bytes& to) {
    const Block& here = blocks_.at(block_);
    const bool stale = offset_ > here.count;
    const std::size_t end = stale ? kBlock : here.count;
    if (end - offset_ >= n) {
        for (std::size_t i = 0; i < n; ++i) {
            to.push_back(here.bytes.at(offset_++));
        }
        return Take::Whole;
    }
    if (stale) {
        return Take::Gone;
    }
    const std::size_t rest = n - (end - offset_);
    if (block_ + 1 == blocks_.size() || blocks_.at(block_ + 1).count < rest) {
        return Take::Cut;
    }
    while (offset_ < end) {
        to.push_back(here.bytes.at(offset_++));
    }
    ++block_;
    for (offset_ = 0; offset_ < rest; ++offset_) {
        to.push_back(blocks_.at(block_).bytes.at(offset_));
    }
    ++met_["record split between blocks"];
    return Take::Whole;
}

bool ParserModel::end_of(Take taken) {
    if (taken == Take::Cut) {
        outcome_.error = 2;
        ++met_["input ends within a record"];
    } else if (taken == Take::Gone) {
        ++met_["stale record past the buffer"];
    }
    return taken == Take::Whole;
}

bool ParserModel::body(std::size_t n, Bytes& record) {
    return end_of(take(n, record));
}

void ParserModel::tell(char letter, std::string_view kind, const Bytes& bytes) {
    ++met_[kind];
    if (kinds_.find(letter) == std::string::npos) {
        return;
    }
    outcome_.events.push_back({std::string(kind), outcome_.packets, bytes});
    if (outcome_.events.size() == stop_after_) {
        stopped_ = true;
        ++met_["stopped by a receiver"];
    }
}

bool ParserModel::packet(Bytes& record) {
    const int opcode = record.at(8) | record.at(9) << 8;
    switch (opcode) {
        case 0x2000:
            if (!body(4, record)) {
                return false;
            }
            tell('p', "poll", record);
            return true;
        case 0x2100: {
            const std::size_t count = blocks_.at(block_).count;
            const std::size_t n = count > 239 ? 229 : count < kHeader ? 0 : count - kHeader;
            met_["short pollreply"] += n < 229 ? 1 : 0;
            if (!body(n, record)) {
                return false;
            }
            record.resize(239, 0);
            for (const std::size_t last : {43U, 107U, 171U}) {
                record.at(last) = 0;
            }
            for (const std::size_t word : {16U, 20U, 172U}) {
                swap_at(record, word);
            }
            tell('r', "pollreply", record);
            return true;
        }
        case 0x5000: {
            if (!body(8, record)) {
                return false;
            }
            const std::size_t length = std::size_t{record.at(16)} << 8 | record.at(17);
            if (length > 512) {
                tell('e', "error", {4});
                return true;
            }
            swap_at(record, 16);
            if (!body(length, record)) {
                return false;
            }
            tell('d', "dmx", record);
            return true;
        }
        case 0x00FF:
            if (!body(4, record)) {
                return false;
            }
            tell('m', "ms", record);
            return true;
        case 0x00FE:
            if (!body(8, record)) {
                return false;
            }
            tell('n', "ns", record);
            return true;
        case 0x9900:
            if (!body(8, record)) {
                return false;
            }
            swap_at(record, 10);
            swap_at(record, 14);
            tell('t', "trigger", record);
            return true;
        default:
            tell('u', "unknown", record);
            return true;
    }
}

ModelOutcome ParserModel::parse(const Bytes& input, const std::string& kinds, std::size_t stop_after) {
    kinds_ = kinds;
    stop_after_ = stop_after;
    stopped_ = false;
    outcome_ = {};
    block_ = 0;
    offset_ = 0;
    matched_ = 0;
    lay_out(input);
    bool found = false;
    bool more = true;
    while (more && !stopped_ && find_identifier()) {
        found = true;
        Bytes record(kIdentifier.begin(), kIdentifier.end());
        // A packet whose opcode is not to be had does not count as one.
        more = end_of(take(2, record));
        if (more) {
            more = packet(record);
            ++outcome_.packets;
        }
    }
    if (!found && outcome_.error == 0) {
        outcome_.error = 3;
        ++met_[input.empty() ? "empty input" : "no identifier"];
    }
    if (!blocks_.empty()) {
        // Blocks behind the one where the parse was stopped have never been read.
        memory_ = (stopped_ && outcome_.error == 0 ? blocks_.at(block_) : blocks_.back()).bytes;
    }
    return outcome_;
}
