#pragma once
// The Spark plug-in interface as this plug-in and the stand-in host both see it: the host's two
// records, the panel record forms, the operations a host offers its plug-ins, and the entry points
// a plug-in exports. Everything here has C linkage, since the host resolves it by name.
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Bit of spark_membuf_struct::BufState telling that the host holds the buffer locked for us.
#define SPARK_MEMBUF_LOCKED 4

// Size of the setup name at the head of spark_info_struct.
#define SPARK_SETUP_NAME_SIZE 256

// The host's description of the current call, handed by value to every entry point.
typedef struct spark_info_struct {
    char SetupName[SPARK_SETUP_NAME_SIZE]; // name of the setup; must stay the first field
    int FrameBytes;                        // bytes of one host frame
    unsigned char RunMode;                 // 0 clip mode, anything else curve mode
    signed char NumCpus;                   // workers offered for this call
    int FrameNo;                           // current frame, from 0
    unsigned int TotalFrameNo;             // clip length in frames
    int FrameDepth;                        // depth code of the host's frames
} spark_info_struct;

// The host's descriptor of one frame buffer.
typedef struct spark_membuf_struct {
    void* Buffer;
    int BufState; // flags; SPARK_MEMBUF_LOCKED when usable
    int BufWidth;
    int BufHeight;
    int BufDepth;
} spark_membuf_struct;

// A panel callback: why the host calls (1 = value changed) and the current call's record.
typedef void* (*SparkCallbackFunction)(int why, spark_info_struct info);

// Panel record forms. The host reads them by layout, so field order and sizes are fixed.
typedef struct SparkFloatStruct {
    float Value, Min, Max, Inc;
    int Flags;
    const char* Title;
    SparkCallbackFunction Callback;
} SparkFloatStruct;

typedef struct SparkIntStruct {
    int Value, Min, Max, Inc;
    int Flags;
    const char* Title;
    SparkCallbackFunction Callback;
} SparkIntStruct;

#define SPARK_PUP_MAX_TITLES 20
typedef struct SparkPupStruct {
    int Value; // selected entry, from 0
    int Count;
    SparkCallbackFunction Callback;
    const char* Titles[SPARK_PUP_MAX_TITLES];
} SparkPupStruct;

typedef struct SparkBooleanStruct {
    unsigned char Value;
    int Flags;
    const char* Title;
    SparkCallbackFunction Callback;
} SparkBooleanStruct;

typedef struct SparkPushStruct {
    const char* Title;
    SparkCallbackFunction Callback; // null: a plain heading
} SparkPushStruct;

// Operations of the host, called by the plug-in.
float sparkAPIVersionInfo(void);
void sparkError(const char* text);
void sparkMessage(const char* text);
const char* sparkProgramGetName(void);
int sparkLoadSetup(const char* setupName);
int sparkSaveSetup(const char* setupName);
int sparkCallingEnv(void);
void sparkCursorBusy(void);
int sparkMemRegisterBuffer(void);
int sparkMemGetBuffer(int id, spark_membuf_struct* buffer);
int sparkGetFrame(int clip, int frame, void* buffer);
float sparkGetCurveValue(int controlClass, int control, int frame);
float sparkGetCurveValuef(int controlClass, int control, float frame);
// Runs `function(argument)` on every host worker at once and returns when all have finished.
int sparkMpFork(void (*function)(void*), int argumentCount, void* argument);
// Tells the calling worker its slice of the frame: first pixel and pixel count, in raster order.
// Slices are equal apart from rounding and lie in worker order.
int sparkMpInfo(unsigned long* offset, unsigned long* size);
void sparkViewingDraw(void);

#ifdef __cplusplus
}

static_assert(sizeof(SparkFloatStruct) == 40);
static_assert(sizeof(SparkIntStruct) == 40);
static_assert(sizeof(SparkPupStruct) == 176);
static_assert(sizeof(SparkBooleanStruct) == 24);
static_assert(sizeof(SparkPushStruct) == 16);
static_assert(offsetof(spark_info_struct, SetupName) == 0);
#endif
