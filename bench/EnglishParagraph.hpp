#pragma once

// About 40 s of ordinary English speech, for the benchmarks that make espeak-ng speak.
inline constexpr const char* kEnglishParagraph =
    "The harbour town woke early on market days. Before the sun had cleared the hills, fishermen "
    "were already hauling their crates up the stone steps, and the baker on the corner had pulled "
    "the first loaves from his oven. Children ran between the stalls, dodging carts of apples and "
    "barrels of salted herring, while their parents argued cheerfully over the price of wool. By "
    "nine o'clock the square was so crowded that the old clock tower could barely be seen above "
    "the awnings. Travellers who arrived by the morning coach often said that they had never "
    "heard so many voices at once, nor smelled so much bread, smoke and sea air in a single "
    "breath. When the bell finally rang at noon, the whole town paused for a moment, and then the "
    "noise began again, louder than before.";
