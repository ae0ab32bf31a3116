#include "sequence_rewriter.h"

namespace forwarder {

unsigned char SequenceRewriter::next(std::size_t stream) {
    if (stream >= last_.size()) {
        last_.resize(stream + 1);
    }
    unsigned char& last = last_[stream];
    last = last == 255 ? 1 : static_cast<unsigned char>(last + 1);
    return last;
}

}  // namespace forwarder
