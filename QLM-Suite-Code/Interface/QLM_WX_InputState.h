#pragma once
// Small memories of the input filters.

namespace QLM::GUI {

/// Collects fractions of a wheel's turn until they make whole notches.
class WheelAccumulator {
  public:
    /// Adds a rotation; `delta` is one notch. The number of whole notches now due, above 0 away from the user.
    int Add(int rotation, int delta) {
        if (delta <= 0) return 0;
        // A change of direction starts anew: what the other way left over would delay the first notch.
        if ((rotation > 0) != (rest > 0)) rest = 0;
        rest += rotation;
        const int notches = rest / delta;
        rest -= notches * delta;
        return notches;
    }

  private:
    int rest = 0;
};

/// Lets a key through once until it goes up.
class KeyLatch {
  public:
    /// True when the key was not held already; it is from now on.
    bool Take(int code) {
        if (held == code) return false;
        held = code;
        return true;
    }
    void Clear() { held = None; }

  private:
    static constexpr int None = -1;
    int held = None;
};

} // namespace QLM::GUI
