#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace vantelo_sounds {

/// Where the library's console lines go: one line per call, to standard output by default.
/// Tests and the command-line program install a sink to capture them exactly. Thread-safe.
class Console {
public:
    using Sink = std::function<void(std::string_view line)>;

    static Console& shared();

    /// Writes `line` and a newline (to the sink when one is set, else standard output, flushed).
    void print(std::string_view line);
    /// Replaces the sink; an empty sink restores standard output. Returns the previous sink.
    Sink setSink(Sink sink);

private:
    std::recursive_mutex mMutex; // a sink may print or replace itself
    Sink mSink;
};

} // namespace vantelo_sounds
