// Value-type codes the runtime uses for variables and channels.
#pragma once

// A fixed underlying type: callers store sentinel values such as -2 in it.
enum DATATYPE : int {
    DATATYPE_NONE = 0,
    DATATYPE_INT = 1,
    DATATYPE_DOUBLE = 2,
    DATATYPE_STRING = 3,
};
