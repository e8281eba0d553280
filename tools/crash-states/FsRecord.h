/* The file-system recorder (FsRecord.c): one recording at a time, in any thread. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/* Starts recording the calls on the files of `dirs` (absolute paths joined by ':') into the file
 * `trace`, after the files' present contents, owners and modes. 0 when `trace` cannot be made. */
int krv_fsrecord_start(const char* trace, const char* dirs);
/* A point of the trace that states built from it are told about, e.g. a command's end. */
void krv_fsrecord_mark(void);
/* The `nth` next call of `op` ("create", "write", "trunc", "fsync", "rename", "fchmod",
 * "fchown") on a recorded file fails with `error` instead of being made. */
void krv_fsrecord_fail(const char* op, int nth, int error);
/* 1 once the call chosen by krv_fsrecord_fail has failed. */
int krv_fsrecord_failed(void);

#ifdef __cplusplus
}
#endif
