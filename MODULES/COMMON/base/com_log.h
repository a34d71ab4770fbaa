/* Private to the library: the one way a module logs. */
#ifndef DVR_COM_LOG_H
#define DVR_COM_LOG_H

#include "COMMON.h"

/* Logs through COM_Printf with the source file's base name and line. Pass
 * __func__ as func for messages that name their function, nullptr otherwise. */
#define COM_LOG(func, ...) COM_Printf(__FILE_NAME__, __LINE__, (func), __VA_ARGS__)

#endif
