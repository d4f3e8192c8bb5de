#include <cstdio>
#include <vantelo_sounds/platform/Console.hpp>

namespace vantelo_sounds {

Console& Console::shared() {
    static Console console;
    return console;
}

void Console::print(std::string_view line) {
    // Lines from several threads never interleave: the whole line is written under the lock.
    std::lock_guard lock(mMutex);
    if (mSink) {
        const Sink sink = mSink; // the sink may replace itself while it runs
        sink(line);
        return;
    }
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

Console::Sink Console::setSink(Sink sink) {
    std::lock_guard lock(mMutex);
    Sink previous = std::move(mSink);
    mSink = std::move(sink);
    return previous;
}

} // namespace vantelo_sounds
