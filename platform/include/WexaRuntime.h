// Runtime services offered to drivers.
#pragma once

#include "CString.h"

// Runtime directories by kind: 1 configuration, 2 runtime root. May be empty.
CString Wexa_GetDirectory(int kind);
// Monotonic milliseconds.
long long Wexa_GetTickCount();
// Sounds the panel buzzer.
void Wexa_Beep(int frequency, int duration);
