#pragma once
// A program found by the library and the program played are one object: the
// library keeps the ProgramFile itself, never a copy of it.
#include "playback/ProgramFile.h"

namespace talvo {

using ProgramEntry = ProgramFile;

} // namespace talvo
