// The README's game loop, built with the project so that it stays true: plays a sound with a
// completion, starts a loop, and pumps the run loop once a frame until the sound has ended.
#include <chrono>
#include <cstdio>
#include <thread>
#include <vantelo_sounds/vantelo_sounds.hpp>

using namespace vantelo_sounds;

int main(int argc, char** argv) {
    const std::string sfx = argc > 1 ? argv[1] : "assets/beep.wav";
    const std::string loop = argc > 2 ? argv[2] : "assets/pad.ogg";

    auto& sounds = VTOSoundsManager::shared();
    bool running = true;
    auto jump = PlaySoundSettings::instanly(FileURL::fileURLWithPath(sfx));
    sounds.play(jump, [&] { running = false; }); // runs on this thread when the sound has ended
    auto engine = PlaySoundSettings::looped(FileURL::fileURLWithPath(loop));
    sounds.play(engine);

    const auto started = std::chrono::steady_clock::now();
    while (running && std::chrono::steady_clock::now() - started < std::chrono::seconds(10)) {
        RunLoop::main().runOnce(); // delivers completions and timers
        std::this_thread::sleep_for(std::chrono::milliseconds(16)); // ... update, draw ...
    }
    sounds.stop(engine);
    std::printf("game_loop: %s\n", running ? "timed out" : "the sound ended");
    return running ? 1 : 0;
}
