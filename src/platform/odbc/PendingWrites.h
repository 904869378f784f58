// New rows that wait to be written, so that many of one kind go to the server together.
#pragma once

#include "platform/odbc/OdbcSession.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace qz::platform {

/// Bounded: what comes when it is full is the caller's loss.
class PendingWrites {
public:
    bool empty() const { return writes_.empty(); }
    bool full() const;
    /// @param insert  of one row.
    void add(const Step& insert);
    /// Puts writes back in front of the others.
    void put_back(std::vector<Step> writes);
    std::vector<Step> take();

private:
    std::deque<Step> writes_;
    std::size_t rows_ = 0;
};

} // namespace qz::platform
