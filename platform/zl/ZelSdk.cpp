// The process-wide SDK globals that the platform owns.
#include "zl/ZelSdk.h"

U32 sess_hdl = 0;
int smRunning = 0;
