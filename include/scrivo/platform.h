/*
 * Scrivo platform layer: memory, streams, strings, dynamic arrays, rectangles,
 * synchronisation, the millisecond clock, logging and the shared result codes.
 *
 * Every allocation, byte stream, string operation, lock and event of the
 * imaging libraries (codec framework, JPEG codec, EXIF) goes through this
 * layer, so that they never touch the C library directly.
 *
 * Conventions
 *   - Operations that can fail return an MRESULT: 0 is success, the other
 *     values are listed below (MResultMessage gives a text for each).
 *   - "Boolean" operations (MStreamClose, MStreamFlush, MStreamFileExistsS)
 *     return 1 for success and 0 for failure; read, write, tell and size
 *     return counts.
 *   - Nothing locks by itself: a stream, a pool or an array belongs to one
 *     thread at a time. The mutex and the event are the only primitives.
 *   - Nothing throws; null handles and pointers are reported, never followed.
 */
#ifndef SCRIVO_PLATFORM_H
#define SCRIVO_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define SCRIVO_API __declspec(dllexport)
#else
#define SCRIVO_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Result codes shared by all imaging libraries (unsigned 32-bit).          */
/* ------------------------------------------------------------------------ */

typedef uint32_t MRESULT;

enum {
    MOK = 0,                  /* success */
    MERR_UNKNOWN = 1,         /* general failure; also a failed lock or wait, a timed-out wait */
    MERR_INVALID_PARAM = 2,   /* null handle or pointer, bad size or index */
    MERR_UNSUPPORTED = 3,     /* format, mode or property value not supported */
    MERR_NO_MEMORY = 4,       /* out of memory */
    MERR_SEEK_FAILED = 4101,  /* a stream seek failed */
    MERR_STREAM_SHORT = 4102, /* a stream could not be read far enough */
    MERR_WRITE_FAILED = 4103  /* a stream write failed */
};

/* A fixed English text for a result code; never null. */
SCRIVO_API const char* MResultMessage(MRESULT code);

/* ------------------------------------------------------------------------ */
/* Basic types.                                                              */
/* ------------------------------------------------------------------------ */

/* Memory-manager handle: null means the process heap (malloc/free); any
 * other value is a static pool made by MMemMgrCreate. Every allocating
 * operation of the imaging libraries takes one and passes it down. */
typedef void* MHandle;

typedef uint16_t MWChar; /* one UTF-16 code unit */

typedef struct {
    int32_t x;
    int32_t y;
} MPOINT;

/* left, top, right, bottom; right and bottom are exclusive. */
typedef struct {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} MRECT;

typedef struct {
    int32_t cx;
    int32_t cy;
} MSIZE;

/* ------------------------------------------------------------------------ */
/* Memory.                                                                   */
/* ------------------------------------------------------------------------ */

/* handle 0: malloc; otherwise MMemAllocStatic. */
SCRIVO_API void* MMemAlloc(MHandle handle, size_t size);
/* handle 0: free; otherwise MMemFreeStatic. */
SCRIVO_API void MMemFree(MHandle handle, void* ptr);
/* Always the heap's realloc, whatever the handle. Callers that resize a
 * block inside a pool use MMemReallocStatic. */
SCRIVO_API void* MMemRealloc(MHandle handle, void* ptr, size_t size);

SCRIVO_API void* MMemCpy(void* dst, const void* src, size_t size);
SCRIVO_API void* MMemMove(void* dst, const void* src, size_t size);
SCRIVO_API void* MMemSet(void* dst, int value, size_t size);
SCRIVO_API int MMemCmp(const void* a, const void* b, size_t size);

/* Heap allocation for large buffers; the handle is ignored. */
SCRIVO_API void* MHugeMemAlloc(MHandle handle, size_t size);
SCRIVO_API void MHugeMemFree(MHandle handle, void* ptr);
SCRIVO_API void* MHugeMemReAlloc(MHandle handle, void* ptr, size_t size);
SCRIVO_API void* MHugeMemLock(void* ptr);  /* returns ptr */
SCRIVO_API void MHugeMemUnlock(void* ptr); /* does nothing */

/* Static pool inside a caller's buffer (which the caller owns and which
 * outlives the pool): 32-byte blocks after a 16-byte header, runs of whole
 * blocks, allocation from the never-used tail first, then first fit on an
 * ordered free list. Returns null for a null buffer or one too small. */
SCRIVO_API MHandle MMemMgrCreate(void* buffer, size_t length);
SCRIVO_API void MMemMgrDestroy(MHandle pool); /* does nothing */
SCRIVO_API void* MMemAllocStatic(MHandle pool, size_t size);
SCRIVO_API void MMemFreeStatic(MHandle pool, void* ptr);
SCRIVO_API void* MMemReallocStatic(MHandle pool, void* ptr, size_t size);

/* Memory for machine code generated at run time (mapped pages). */
SCRIVO_API void* MCodeAlloc(size_t size);
SCRIVO_API void MCodeFree(void* code);
/* Pins the pages; returns the address, or null on failure. */
SCRIVO_API void* MCodeLock(void* code);
SCRIVO_API void MCodeUnlock(void* code);

/* ------------------------------------------------------------------------ */
/* Streams over a file or over memory.                                       */
/* ------------------------------------------------------------------------ */

typedef struct MStream* MHStream;

enum {
    MSTREAM_MODE_READ = 1,       /* "rb" (also any unknown mode) */
    MSTREAM_MODE_WRITE = 2,      /* "wb" */
    MSTREAM_MODE_APPEND = 3,     /* "ab" */
    MSTREAM_MODE_READ_WRITE = 4, /* "rb+" */
    MSTREAM_MODE_WRITE_READ = 5, /* "wb+" */
    MSTREAM_MODE_APPEND_READ = 6 /* "ab+" */
};

/* Seek origins; note the order: 1 is the end. */
enum { MSTREAM_SEEK_BEGIN = 0, MSTREAM_SEEK_END = 1, MSTREAM_SEEK_CUR = 2 };

/* Size of every chunk after the first of a growable memory stream. */
#define MSTREAM_CHUNK_SIZE 16384

SCRIVO_API MHStream MStreamOpenFromFileS(const char* path, int32_t mode);
/* The wide path is narrowed unit by unit (MWCharToChar) into 256 units. */
SCRIVO_API MHStream MStreamOpenFromFileW(const MWChar* path, int32_t mode);
/* With a block: a fixed stream over the caller's bytes (which stay the
 * caller's). With a null block: a growable stream, empty; its first chunk
 * holds min(length, 16384) bytes, or 16384 for length 0. */
SCRIVO_API MHStream MStreamOpenFromMemoryBlock(void* block, int32_t length);

SCRIVO_API int32_t MStreamRead(MHStream s, void* buf, int32_t n);
SCRIVO_API int32_t MStreamWrite(MHStream s, const void* buf, int32_t n);
/* 0 on success. */
SCRIVO_API MRESULT MStreamSeek(MHStream s, int32_t origin, int32_t offset);
SCRIVO_API int32_t MStreamTell(MHStream s);
SCRIVO_API int32_t MStreamGetSize(MHStream s);
/* Memory streams only: truncates to min(size, new size), never enlarges.
 * Returns the new size; -1 for a file stream. */
SCRIVO_API int32_t MStreamSetSize(MHStream s, int32_t size);
SCRIVO_API int32_t MStreamFlush(MHStream s); /* 1 success, 0 failure */
SCRIVO_API int32_t MStreamClose(MHStream s); /* 1 success, 0 failure */
/* Copies up to n bytes from src's position to dst's position through a
 * 131072-byte buffer; returns the number of bytes written. */
SCRIVO_API int32_t MStreamCopy(MHStream src, MHStream dst, int32_t n);

SCRIVO_API int32_t MStreamFileExistsS(const char* path);   /* 1 or 0 */
SCRIVO_API uint32_t MStreamFileGetSizeS(const char* path); /* 0xFFFFFFFF if unknown */
SCRIVO_API MRESULT MStreamFileDeleteS(const char* path);
SCRIVO_API MRESULT MStreamFileMoveS(const char* src, const char* dst);
SCRIVO_API MRESULT MStreamFileRenameS(const char* src, const char* dst);
SCRIVO_API MRESULT MStreamFileCopyS(const char* src, const char* dst);
SCRIVO_API MRESULT MStreamFileCreateS(const char* path);
SCRIVO_API int32_t MStreamFileExistsW(const MWChar* path);
SCRIVO_API uint32_t MStreamFileGetSizeW(const MWChar* path);
SCRIVO_API MRESULT MStreamFileDeleteW(const MWChar* path);
SCRIVO_API MRESULT MStreamFileMoveW(const MWChar* src, const MWChar* dst);
SCRIVO_API MRESULT MStreamFileRenameW(const MWChar* src, const MWChar* dst);
SCRIVO_API MRESULT MStreamFileCopyW(const MWChar* src, const MWChar* dst);
SCRIVO_API MRESULT MStreamFileCreateW(const MWChar* path);

/* ------------------------------------------------------------------------ */
/* Strings. Narrow strings are 8-bit, wide strings 16-bit units, both       */
/* NUL-terminated.                                                           */
/* ------------------------------------------------------------------------ */

SCRIVO_API size_t MSCsLen(const char* s);
SCRIVO_API char* MSCsCpy(char* dst, const char* src);
SCRIVO_API char* MSCsNCpy(char* dst, const char* src, size_t n);
SCRIVO_API char* MSCsCat(char* dst, const char* src);
SCRIVO_API int MSCsCmp(const char* a, const char* b);
SCRIVO_API int MSCsNCmp(const char* a, const char* b, size_t n);
SCRIVO_API int MSCsICmp(const char* a, const char* b);
SCRIVO_API int MSCsNICmp(const char* a, const char* b, size_t n);
SCRIVO_API char* MSCsChr(const char* s, int c);
SCRIVO_API char* MSCsRChr(const char* s, int c);
SCRIVO_API char* MSCsStr(const char* s, const char* sub);
SCRIVO_API unsigned long MSCsToUL(const char* s, char** end, int base);
SCRIVO_API int MStoi(const char* s);
SCRIVO_API long MStol(const char* s);
SCRIVO_API int MSSprintf(char* dst, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;
SCRIVO_API char* MSCsMakeLower(char* s);
SCRIVO_API char* MSCsMakeUpper(char* s);

SCRIVO_API size_t MWCsLen(const MWChar* s); /* 0 for null */
SCRIVO_API MWChar* MWCsCpy(MWChar* dst, const MWChar* src);
SCRIVO_API MWChar* MWCsCat(MWChar* dst, const MWChar* src);
SCRIVO_API MWChar* MWCsStr(const MWChar* s, const MWChar* sub);
SCRIVO_API MWChar* MWCsMakeLower(MWChar* s);
SCRIVO_API MWChar* MWCsMakeUpper(MWChar* s);

/* One-to-one widening and narrowing: at most capacity - 1 units are
 * copied, the result is always terminated, and the return value is the
 * number of units written including the terminator (1 for capacity 0,
 * which writes nothing). */
SCRIVO_API int32_t MCharToWChar(const char* src, MWChar* dst, int32_t capacity);
SCRIVO_API int32_t MWCharToChar(const MWChar* src, char* dst, int32_t capacity);

/* UTF-8 <-> UTF-16. The multibyte encoding is UTF-8. Same contract as
 * above (capacity in units of the destination, terminator counted); a
 * null destination returns the capacity needed for the whole string.
 * A sequence is never cut: when the next character does not fit, the
 * output stops before it. Malformed input becomes U+FFFD. */
SCRIVO_API int32_t MUTF8ToUnicode(const char* src, MWChar* dst, int32_t capacity);
SCRIVO_API int32_t MUnicodeToUTF8(const MWChar* src, char* dst, int32_t capacity);
SCRIVO_API int32_t MMultiByteToWideChar(const char* src, MWChar* dst, int32_t capacity);
SCRIVO_API int32_t MWideCharToMultiByte(const MWChar* src, char* dst, int32_t capacity);

/* ------------------------------------------------------------------------ */
/* Dynamic array of fixed-size elements, copied in by value.                 */
/* ------------------------------------------------------------------------ */

typedef struct ADK_DArray* ADK_HDArray;

/* elementSize must be non-zero and a multiple of 4. 2 for a null result
 * pointer or a bad element size, 4 when allocation fails. */
SCRIVO_API MRESULT ADK_DArrayCreate(int32_t elementSize, MHandle handle, ADK_HDArray* array);
SCRIVO_API MRESULT ADK_DArrayDestroy(ADK_HDArray array);
/* Appends; *index receives the new element's index, or -1 on failure. */
SCRIVO_API MRESULT ADK_DArrayAdd(ADK_HDArray array, const void* element, int32_t* index);
/* Inserts before index; index == count appends. */
SCRIVO_API MRESULT ADK_DArrayInsertAt(ADK_HDArray array, int32_t index, const void* element);
SCRIVO_API MRESULT ADK_DArrayRemoveAt(ADK_HDArray array, int32_t index);
SCRIVO_API MRESULT ADK_DArrayRemoveAll(ADK_HDArray array);
SCRIVO_API MRESULT ADK_DArraySetAt(ADK_HDArray array, int32_t index, const void* element);
SCRIVO_API MRESULT ADK_DArrayGetAt(ADK_HDArray array, int32_t index, void* element);
/* *index receives the first index whose bytes equal element, or -1 (and
 * the result is 1) when there is none. */
SCRIVO_API MRESULT ADK_DArrayFind(ADK_HDArray array, const void* element, int32_t* index);
SCRIVO_API MRESULT ADK_DArraySwapElement(ADK_HDArray array, int32_t a, int32_t b);
/* Moves the element at from so that it ends at index to. */
SCRIVO_API MRESULT ADK_DArrayMoveElement(ADK_HDArray array, int32_t from, int32_t to);
SCRIVO_API int32_t ADK_DArrayGetCount(ADK_HDArray array);      /* 0 for null */
SCRIVO_API int32_t ADK_DArrayGetUpperBound(ADK_HDArray array); /* -1 for null or empty */
SCRIVO_API void* ADK_DArrayGetBuffer(ADK_HDArray array);
SCRIVO_API int32_t ADK_DArrayGetCapacity(ADK_HDArray array);
SCRIVO_API int32_t ADK_DArrayIsValidIndex(ADK_HDArray array, int32_t index); /* 1 or 0 */
/* Sets the capacity, rounded up to a multiple of 8. */
SCRIVO_API MRESULT ADK_DArraySetSize(ADK_HDArray array, int32_t capacity);
SCRIVO_API MRESULT ADK_DArrayGrow(ADK_HDArray array, int32_t n);
/* Shrinks the capacity to the count rounded up to a multiple of 8. */
SCRIVO_API MRESULT ADK_DArrayFreeExtra(ADK_HDArray array);

/* ------------------------------------------------------------------------ */
/* Rectangles and points.                                                    */
/* ------------------------------------------------------------------------ */

SCRIVO_API void ADK_SetRect(MRECT* r, int32_t left, int32_t top, int32_t right, int32_t bottom);
SCRIVO_API void ADK_SetRectEmpty(MRECT* r);
/* Empty: no area (right <= left or bottom <= top). */
SCRIVO_API int32_t ADK_IsRectEmpty(const MRECT* r);
/* Null: all four values 0. */
SCRIVO_API int32_t ADK_IsRectNull(const MRECT* r);
SCRIVO_API int32_t ADK_EqualRect(const MRECT* a, const MRECT* b);
SCRIVO_API int32_t ADK_GetRectWidth(const MRECT* r);
SCRIVO_API int32_t ADK_GetRectHeight(const MRECT* r);
SCRIVO_API MSIZE ADK_GetRectSize(const MRECT* r);
SCRIVO_API MPOINT ADK_RectTopLeft(const MRECT* r);
SCRIVO_API MPOINT ADK_RectBottomRight(const MRECT* r);
SCRIVO_API MPOINT ADK_RectCenterPoint(const MRECT* r);
SCRIVO_API int32_t ADK_PtInRect(const MRECT* r, MPOINT p);
SCRIVO_API void ADK_OffsetRect(MRECT* r, int32_t dx, int32_t dy);
SCRIVO_API void ADK_InflateRect(MRECT* r, int32_t dx, int32_t dy);
SCRIVO_API void ADK_NormalizeRect(MRECT* r);
/* 1 and the intersection when they overlap; 0 and an empty result else. */
SCRIVO_API int32_t ADK_IntersectRect(MRECT* dst, const MRECT* a, const MRECT* b);
/* The smallest rectangle holding both; an empty operand is ignored. */
SCRIVO_API int32_t ADK_UnionRect(MRECT* dst, const MRECT* a, const MRECT* b);
SCRIVO_API void ADK_PointSet(MPOINT* p, int32_t x, int32_t y);
SCRIVO_API void ADK_PointOffset(MPOINT* p, int32_t dx, int32_t dy);
SCRIVO_API int32_t ADK_PointIsEqual(MPOINT a, MPOINT b);

/* ------------------------------------------------------------------------ */
/* Synchronisation and time.                                                 */
/* ------------------------------------------------------------------------ */

typedef struct MMutex* MHMutex;
typedef struct MEvent* MHEvent;

#define MEVENT_WAIT_FOREVER 0xFFFFFFFFu

SCRIVO_API MHMutex MMutexCreate(void);
SCRIVO_API MRESULT MMutexLock(MHMutex m);
SCRIVO_API MRESULT MMutexUnlock(MHMutex m);
SCRIVO_API MRESULT MMutexDestroy(MHMutex m);

/* An event keeps no signalled state: a signal given while nobody waits is
 * lost, and MEventReset does nothing. Pair it with a state flag of your
 * own, guarded by your own mutex. */
SCRIVO_API MHEvent MEventCreate(void);
SCRIVO_API MRESULT MEventSignal(MHEvent e);
/* 0 when signalled, 1 on time-out or failure, 2 for a null event. */
SCRIVO_API MRESULT MEventWait(MHEvent e, uint32_t timeoutMs);
SCRIVO_API MRESULT MEventReset(MHEvent e); /* does nothing, returns 0 */
SCRIVO_API MRESULT MEventDestroy(MHEvent e);

/* Wall-clock milliseconds as an unsigned 32-bit value that wraps. */
SCRIVO_API uint32_t MGetCurTimeStamp(void);

/* ------------------------------------------------------------------------ */
/* Initialisation files: "[category]" lines and "key=value" lines.           */
/* ------------------------------------------------------------------------ */

typedef struct MIni* MHIni;

SCRIVO_API MHIni MIniStartS(const char* path);
SCRIVO_API MRESULT MIniEndS(MHIni ini); /* writes back changes, frees */
SCRIVO_API MRESULT MIniReadS(MHIni ini, const char* category, const char* key, char* value,
                             int32_t capacity);
SCRIVO_API MRESULT MIniWriteS(MHIni ini, const char* category, const char* key, const char* value);
SCRIVO_API MRESULT MIniRemoveS(MHIni ini, const char* category, const char* key);
SCRIVO_API MRESULT MIniFindFirstCategoryS(MHIni ini, char* category, int32_t capacity);
SCRIVO_API MRESULT MIniFindNextCategoryS(MHIni ini, char* category, int32_t capacity);
SCRIVO_API MRESULT MIniReadSingleS(const char* path, const char* category, const char* key,
                                   char* value, int32_t capacity);
SCRIVO_API MRESULT MIniWriteSingleS(const char* path, const char* category, const char* key,
                                    const char* value);

/* ------------------------------------------------------------------------ */
/* Logging.                                                                  */
/* ------------------------------------------------------------------------ */

#define MLOG_TAG "QUORVEX_SCRIVO"
enum { MLOG_VERBOSE = 2, MLOG_DEBUG = 3, MLOG_INFO = 4, MLOG_WARN = 5, MLOG_ERROR = 6 };

/* Receives every line the library logs (without a trailing newline). */
typedef void (*MLogSink)(int priority, const char* tag, const char* line, void* user);

/* Installs the sink (null: back to the default). On Android the default is
 * the system log; on a desktop it is silent. Safe to call at any time from
 * any thread; a line being delivered while the sink changes goes to the
 * old or the new sink, never to neither. */
SCRIVO_API void MLogSetSink(MLogSink sink, void* user);
SCRIVO_API void MLogPrint(int priority, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

#ifdef __cplusplus
}
#endif

#endif /* SCRIVO_PLATFORM_H */
