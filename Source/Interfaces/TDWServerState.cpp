#include "Interfaces/TDWServerState.h"

bool __gTDWServerInitialized = false;

int TDWDebugLevel()
{
    return 0;
}
