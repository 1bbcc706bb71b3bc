// The block writer: full blocks go to the output with one write each; the output is put in place
// only when every write succeeded.
#include "platform/blockwriter.h"

#include <algorithm>

namespace kv {

BlockWriter::~BlockWriter() {
    if (out_.isOpen()) closeOutput(out_, false);
}

void BlockWriter::put(std::string_view s) {
    if (s.size() >= block_.size()) {  // a large text goes to the file as it is, not copied first
        flush();
        if (ok_) ok_ = writeOutput(out_, s.data(), s.size());
        return;
    }
    while (!s.empty()) {
        if (used_ == block_.size()) flush();
        const size_t n = std::min(s.size(), block_.size() - used_);
        s.copy(block_.data() + used_, n);
        used_ += n;
        s.remove_prefix(n);
    }
}

void BlockWriter::flush() {
    if (used_ > 0 && ok_) ok_ = writeOutput(out_, block_.data(), used_);
    used_ = 0;
}

bool BlockWriter::close() {
    flush();
    return closeOutput(out_, ok_);
}

}  // namespace kv
