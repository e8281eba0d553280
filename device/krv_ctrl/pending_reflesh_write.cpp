// Placeholder until the channel refresh and write commands land.
#include "DevBas.h"

int CDevBas::refleshData(WEXA_DATA&, CArray<double, double>&, CStringArray&) { return 1; }
void CDevBas::setArrayValue(CStringArray& stringArray, DEV_CHNLNAME index, CString value) {
    if (index < stringArray.GetSize()) stringArray[index] = value;
}
void CDevBas::setArrayValue(CArray<double, double>& valueArray, DEV_CHNLNAME index, double value) {
    if (index < valueArray.GetSize()) valueArray[index] = value;
}
int CDevBas::mfDevIOWriteChannel(WEXA_DATA&, CString&) { return 0; }
int CDevBas::execSameCtrl(WEXA_DATA&, const CString&, NTP_CTRL_TYPE) { return 0; }
