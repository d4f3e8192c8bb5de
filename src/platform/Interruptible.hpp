#pragma once

namespace vantelo_sounds {

/// Something that sounds and falls silent when the audio session is interrupted: every player and
/// speech synthesizer of the process is one, registered for as long as it lives. Made, destroyed
/// and told on the run loop's thread.
class Interruptible {
public:
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

    /// Tells everything registered, in the order it was made, that an interruption began.
    static void interruptAll();

protected:
    Interruptible();
    ~Interruptible();

    /// An interruption began: fall silent now, as the platform's own objects do.
    virtual void interruptionBegan() = 0;
};

} // namespace vantelo_sounds
