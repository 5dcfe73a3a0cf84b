#pragma once

/// How often a test goes round. Where ThreadSanitizer watches, repeats of single-threaded work are few: the other builds
/// prove the results, and each round there takes the same way past the same threads.
template <class Number> constexpr Number Rounds(Number all, [[maybe_unused]] Number whereThreadsAreWatched) {
#if defined(__SANITIZE_THREAD__)
    all = whereThreadsAreWatched;
#endif
    return all;
}
