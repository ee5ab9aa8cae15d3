// Operating-system part of SysExcept: catching hardware exceptions (invalid
// memory access, division by zero, illegal instruction, ...) and turning
// them into a jump to the catch point registered on the faulting thread.
// POSIX uses signal handlers; Win32 a vectored exception handler.
#pragma once

#include "SysExceptItf.h"

namespace kestrel::sysexcept {

// Installs / removes the handlers; both may be called more than once.
bool OsInstall();
void OsUninstall();

// Portable side, called by the backend's handler: takes the innermost frame
// of the calling thread off its stack (null when there is none) ...
RTS_EXCEPT_FRAME *TakeFrame();
// ... and jumps to a frame that TakeFrame handed out, after recording the
// exception in it.
[[noreturn]] void JumpToFrame(RTS_EXCEPT_FRAME *pFrame, RTS_UI32 ulException, RTS_UINTPTR ulAddress);

} // namespace kestrel::sysexcept
