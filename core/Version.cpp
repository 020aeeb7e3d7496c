#include "vorneffects/VornEffects.h"

extern "C" {

const double VornEffectsVersionNumber = 1.0;
const unsigned char VornEffectsVersionString[] = "@(#)PROGRAM:VornEffects  PROJECT:VornV5-1\n";
}
