// Placeholder until the device entry lands; keeps the driver linkable.
#include "DevBas.h"
#include "DevServer.h"

IRtdb* CDevBas::m_pRtdb = nullptr;
CDevBas::CDevBas() = default;
CDevBas::~CDevBas() = default;
int CDevBas::mfDeserializeFromOld(WEXA_DATA&) { return 0; }
int CDevServer::SvrGetParaValue(WEXA_DATA&, CString, CString&) { return 0; }
int CDevServer::SvrGetParaValue(WEXA_DATA&, CString, int&) { return 0; }
int CDevServer::SvrSetParaValue(WEXA_DATA&, CString, int) { return 0; }
double CDevServer::SvrStr2Double(CString, int, int, int) { return 0.0; }
int cstringToNumeric(CString, CString, void*) { return 1; }
