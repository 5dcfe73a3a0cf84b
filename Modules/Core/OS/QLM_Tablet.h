#pragma once
// Pen pressure.

/// A source of pen packets; the shell makes the one of its toolkit.
class QLM_Tablet {
  public:
    virtual ~QLM_Tablet() = default;
    virtual bool Open() = 0;
    virtual void Close() = 0;
};

/// Lists the pen devices that the kernel knows on standard output, a line each.
void QLM_TabletSelfTest();

/// Turns a raw driver value into the pressure curve's result and stores it. `minimum` and `range` come from the
/// driver's device record. Main thread.
void QLM_TabletPacket(int raw, int minimum, int range);
/// The pressure of a raw value under given settings; the arithmetic behind QLM_TabletPacket.
float QLM_PressureFromRaw(int raw, int minimum, int range, float sensitivity, float cutoff);
/// A mouse button went down: a second without packets means a mouse, and full pressure.
void QLM_TabletButtonDown();
/// Sets the pressure directly (a script's pen).
void QLM_SetPressure(float pressure);
/// The last pressure, 1.0 before any packet; may reach 1024/1023. Any thread.
float QLM_GetPressure();
