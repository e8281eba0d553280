// Reading and writing project variables by name, with literal fallbacks.
#pragma once

#include "CString.h"
#include "WexaData.h"

class CDevServer {
public:
    // 1 = delivered, 0 = not delivered.
    static int SvrGetParaValue(WEXA_DATA& data, CString name, CString& out);
    static int SvrGetParaValue(WEXA_DATA& data, CString name, int& out);
    // 1 = written, 0 = the name is not a numeric variable.
    static int SvrSetParaValue(WEXA_DATA& data, CString name, int value);
    static double SvrStr2Double(CString text, int count, int reserved1, int reserved2);
};

// Truncation toward zero that saturates at the int limits instead of overflowing (NaN gives 0).
int truncateToInt(double value);

// Table-driven conversion of a literal; returns the converter's result, or 1
// when the format is not in the table (out untouched).
int cstringToNumeric(CString text, CString format, void* out);
