/*
 * NimbrelEngine: the exported functions of libNimbrelEngine, for C and C++.
 *
 * The library has no engine object: its state is made when it is loaded, and a host drives it through these functions.
 * A host calls initEngine once, opens clouds with loadPointCloudFile, and calls shutdownEngine before it ends.
 *
 * Common to all functions:
 *
 *   bool          one byte; wchar_t has 32 bits.
 *   path          zero-terminated wide string; the library turns it into UTF-8 for the system.
 *   box           6 doubles: minimum x, y, z, then maximum x, y, z.
 *   matrix        16 doubles, column by column, as OpenGL has them.
 *   window        number of a host window, 0 to 7; more are accepted and see nothing.
 *   point         3 doubles: x, y, z, in the units of the file.
 *   attributes    5 bytes a point: red, green, blue, intensity, class (LAS numbers).
 *   ownership     every buffer belongs to the caller, and is used only during the call.
 *                 A null one that is not allowed for is treated like an unknown id.
 *   failure       quiet: a neutral result (0, false or -1), and outputs left untouched. nimbrelLastError says more
 *                 where the failure has a reason worth telling. No exception leaves the library, and no input ends the
 *                 process.
 *   diagnostics   plain lines on standard output. A host that prints results there redirects it around the library.
 */
#ifndef NIMBREL_ENGINE_H
#define NIMBREL_ENGINE_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#if defined(__GNUC__)
#define NIMBREL_API __attribute__((visibility("default")))
#else
#define NIMBREL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Lifecycle --------------------------------------------------------------------------------------------------
 * Called from one thread of the host, and not beside any other function. */

/**
 * Arms the engine; before that no cloud loads.
 *
 * key  zero-terminated text of the host's licence. This distribution accepts every key that is not empty.
 *
 * Returns 1, or -1 for a null, empty or blocked key; the engine is then not armed, even if it was before.
 */
NIMBREL_API int initEngine(const char* key);

/**
 * Closes clouds as reset does, then waits for the jobs of the worker threads and ends these for good. Logs "Joining
 * Processor", "Joining Disk", "Joining OPC" and "Joining Cache" as it goes. Nothing loads or builds afterwards.
 */
NIMBREL_API void shutdownEngine(void);

/**
 * Aborts uploads, then closes clouds, first to last. It is an established oddity that each close moves the rest up by
 * one place and the walk goes on to the next, so that every second cloud stays: of three clouds one. Call it until
 * getNodeCount is 0 for every id, or close each cloud.
 */
NIMBREL_API void reset(void);

/** The version of the library, such as "0.1.0". The text lives as long as the library. Any thread. */
NIMBREL_API const char* nimbrelVersion(void);

/**
 * Why the last load, build, upload, other request to the cloud service or read of a node's points failed, in one line
 * of UTF-8 without a file name; empty when none did. Loading, createOPC, uploadGlimmetFile and emailGlimmetLink clear it
 * when they begin.
 * The text is valid until the calling thread asks again. Any thread.
 */
NIMBREL_API const char* nimbrelLastError(void);

/* ---- The table of clouds ----------------------------------------------------------------------------------------
 * A cloud is known by its id from the load that opened it until a close. The end of a load or a close holds the table
 * exclusively; everything else shares it, so that calls from several threads may overlap. An unknown id does nothing. */

/**
 * Opens a point file of version 17 or 18, of which it reads the header and the tree, not the points; or a voxel model,
 * version 90, which it reads whole.
 *
 * path  the file. The first to open a path gets it for writing where the system allows that; later ones read only.
 *
 * Returns the id, or -1: the engine is not armed, the file does not exist, is no regular file, is shorter than 124
 * bytes, or is damaged (its tree does not fit its header or the file). nimbrelLastError tells which. A node whose
 * points lie outside the file does not keep it from loading: that node is a failed read.
 *
 * Completes the edits that a killed process left in FILE.journal (see Editing), which can take as long as writing 32
 * MiB. A file that is open read-only is shown as if that had been done.
 *
 * The id is the number of clouds that were open before, not a running number: after a cloud other than the last was
 * closed, the next load can get the id of a living cloud, and calls then reach the older of the two.
 *
 * Cost: one read of the tree, and some 300 bytes of memory a node; for a voxel model 7 bytes a node and the file's own
 * size. Colours that a model lacks are a mid grey.
 */
NIMBREL_API int loadPointCloudFile(const wchar_t* path);

/**
 * Opens a cloud of a point server over HTTP or HTTPS, read only. Asks for its description and its tree; points are
 * asked for node by node as they come into view, several nodes at once. docs/network.md tells what a server has to
 * answer.
 *
 * url  scheme, "://", host, ":", port, path, such as http://localhost:8080/town.opc. The port must be there, the host
 *      is a name or an IPv4 address. A blank is sent as %20. Certificates are checked against those of the system.
 *
 * Returns the id, with which it is as for loadPointCloudFile, or -1: the engine is not armed, the URL is not of this
 * form, the server does not answer, or its answers do not fit each other or the protocol. nimbrelLastError tells which.
 *
 * Blocks for the two answers. A server may take 300 seconds to accept a connection and 5 seconds between two bytes; an
 * answer whose headers take longer than 15 seconds, or whose body comes at less than 1 KiB a second beyond that, is
 * given up. A node that can't be read is a failed read, and asked for again at the next camera; a close gives up what
 * is under way. Coordinates come as 32-bit floats relative to the minimum corner of their node.
 */
NIMBREL_API int loadPointCloudNetwork(const wchar_t* url);

/**
 * Closes a cloud, once the load jobs of all clouds have stopped and undo and redo are done. Any selection of it and its
 * part in the history are lost. After edits it waits until the file is on the disk.
 */
NIMBREL_API void closePointCloud(int id);

/** Whether the cloud takes part in drawing; true after a load. */
NIMBREL_API void setEnabled(int id, bool enabled);

/** The cloud's mask flag; false after a load. */
NIMBREL_API void setMask(int id, bool mask);

/** Scale of the cloud on all three axes, about its origin; 1.0 after a load. */
NIMBREL_API void setScale(int id, double scale);

/**
 * Places the cloud in the world.
 *
 * matrix  16 doubles; the scale of setScale is applied before it.
 */
NIMBREL_API void setPointCloudPosition(int id, const double* matrix);

/**
 * Sets how the cloud is drawn. Values are stored as they come.
 *
 * lodFactor                       level of detail, 30 after a load; more shows more points
 * colourMode                      what colours a point: 0, as after a load, intensity as grey; 2 intensity as hue; any
 *                                 other its colour
 * smoothing                       flag, 0 after a load: points are round, grow with nearness, and blend where they
 *                                 overlap
 * useLasColours                   flag, 0 after a load: the class's colour (setLasClassifications) in place of the
 *                                 point's
 * ignoreClipBox                   flag, 0 after a load: the clip box does not apply to this cloud
 * pointSize                       pixels, 2.0 after a load; with smoothing the size grows up to 200 pixels
 * pointRatio                      how fast it grows with smoothing, 5.0 after a load
 * red, green, blue                per cent added to the channels, 0.0 after a load
 * brightness, contrast            per cent, 0.0 after a load
 * opacity                         100.0 after a load; any other value makes the cloud transparent
 * range, strength                 of a transparent cloud: the depth over which it fades, 20.0 after a load, and what
 *                                 its colours are divided by, 2.0
 * resolution                      units to which places are rounded, 0.0 for none, as after a load
 *
 * The low byte of each flag counts.
 */
NIMBREL_API void setPointCloudProperties(int id, int lodFactor, int colourMode, int smoothing, int useLasColours,
                                         int ignoreClipBox, float pointSize, float pointRatio, float red, float green,
                                         float blue, float brightness, float contrast, float opacity, float range,
                                         float strength, float resolution);

/**
 * Tells every cloud that a host window is gone: nodes seen in no other window give up their points. Windows are 0 to 7.
 * A voxel model takes no notice: it keeps the cells of its windows until no camera sees it any more.
 */
NIMBREL_API void unregisterWindow(int window);

/* ---- Queries: look into a loaded cloud without changing it ------------------------------------------------------
 * Callable from any thread. An unknown id gives 0 and leaves outputs untouched. Nodes are numbered in pre-order from
 * 0, the root; a number outside the tree is treated like an unknown id. */

/**
 * The box of the cloud in the world: the two corners of the file's box, each put through the cloud's placement. With a
 * rotated placement they need not be a minimum and a maximum any more.
 *
 * out  6 doubles
 */
NIMBREL_API void getBoundingBox(int id, double* out);

/**
 * Points now in the cloud; deletions lower it, while the header keeps the count of the build. Walks the tree. For a
 * voxel model it is the number of nodes of the model that was opened last, whichever that is.
 */
NIMBREL_API int64_t getPointCount(int id);

/** Nodes that the header announces. */
NIMBREL_API int getNodeCount(int id);

/**
 * The shape of the tree, in pre-order.
 *
 * out  3 bytes a node, getNodeCount(id) nodes: the mask (bit 0: the low child exists, bit 1: the high child exists,
 *      bits 2 and 3: split on X or on Y, neither: on Z), then the point count, 16 bits, little-endian
 *
 * Boxes follow from the root's, which getOrigin gives: a split halves a box on its axis, at (minimum + maximum) * 0.5.
 * A point can lie outside its node's box by half the grid that the file was built with, 5 units at most.
 *
 * A voxel model shows one node without children and with one point, whatever getNodeCount says; the rest of `out` is
 * left as it was. getNodePoints gives zeros for that point. Selecting, editing, comparing and exporting do nothing
 * there.
 */
NIMBREL_API void getTreeStructure(int id, char* out);

/**
 * Copies the points of one node, in the coordinates of the file: the cloud's placement is not applied.
 *
 * xyz     3 doubles a point, getNodePointCount(id, node) points
 * colour  attributes, 5 bytes a point
 *
 * A node that is not resident is read on the calling thread, which may block. If that read fails, each point is
 * the node's minimum corner in black, and nimbrelLastError says so.
 */
NIMBREL_API void getNodePoints(int id, int node, double* xyz, char* colour);

/** Points of one node now, at most 32767. */
NIMBREL_API int getNodePointCount(int id, int node);

/**
 * Which points of a node are selected.
 *
 * out  a byte a point; set to 1 for each selected point, the others are left as they are
 *
 * Returns the number of selected points.
 */
NIMBREL_API int getNodeSelections(int id, int node, char* out);

/* ---- Editing: change points in the file -------------------------------------------------------------------------
 * Callable from any thread. An edit returns when it is done, on all cores; it waits for the undo and redo jobs that
 * were asked for before. A cloud that is open read-only is passed over without a word.
 *
 * Edits are made in the file itself, at once, and nothing is ever erased from it. A process that is killed at any
 * instant of an edit, an undo or a redo leaves a file that opens with every original point: what was under way is
 * written to a journal first, FILE.journal, which the next load replays and removes. Keep the two together. A close
 * brings everything to the disk and removes the journal. After a failure of power or of the system nothing of an edit
 * that was not followed by a close is certain. One process edits a file at a time: while one has begun to, and until it
 * closes the file, the edits of others change nothing. An edit for which the journal can't be written, because the disk
 * is full or the folder can't be written to, changes nothing either; nimbrelLastError tells. docs/format.md has the
 * journal. */

/**
 * Deletes the selected points of the clouds that are enabled, not masked and open for writing, and clears the selection
 * of each node it touches. Selections can't be undone any more (removes type 0 from the history).
 *
 * Points stay in the file behind the others, or marked, and restorePointCloud brings them back at any later time. The
 * coordinates and attributes stored do not change; in version 17 the order of the points of a node does.
 */
NIMBREL_API void deleteSelectedPoints(void);

/** Brings back every point of a cloud that was deleted since its file was built. Leaves selections as they are. */
NIMBREL_API void restorePointCloud(int id);

/**
 * Sets the class of the selected points of the clouds that are enabled and not masked.
 *
 * value  its low byte is the class, of which version 18 keeps the low 4 bits
 *
 * What is on the screen keeps the old class until its nodes are loaded or selected from again.
 */
NIMBREL_API void setLasValueOnSelectedPoints(int value);

/* ---- History: undo and redo -------------------------------------------------------------------------------------
 * A host brackets each action between startHistoryRecording and stopHistoryRecording. Meanwhile every node takes a
 * snapshot of itself before its first change, and these make one entry to undo. Callable from any thread.
 *
 * Entries are best undone in the order of their making. One that no longer fits, because a node was changed by
 * something that was not recorded or undone, never loses a point: it leaves the bytes of such a node as they are.
 * Closing a cloud takes its nodes out of every entry, and entries that hold nothing else go. */

/**
 * Begins to record.
 *
 * path  a folder for the bytes of type 2, which go to a file named PATH\undo_N beside it: the backslash is part of the
 *       name, N counts from 1 in each process, and an existing file of that name is overwritten
 * type  0: selections. 1: deletions and restorations. 2: changes of colours and classes. Others record that there was a
 *       change, and undoing does nothing
 *
 * A recording under way is ended first, as by stopHistoryRecording. With type 2, a node for whose bytes there is not
 * more than 1 GiB of room on the volume of `path` is not changed by painting or classifying; a folder that does not
 * exist has no room. Clouds that are loaded while a recording is under way take part in it.
 */
NIMBREL_API void startHistoryRecording(const wchar_t* path, int type);

/** Ends the recording. True if there was something to undo; what could be redone before stays so. */
NIMBREL_API bool stopHistoryRecording(void);

/**
 * Undo the last entry, or redo the one undone last; without one they do nothing. They return at once: the work is done
 * by a thread of its own, in the order of the calls. Nodes that change are unloaded and load again at the next
 * setCamera.
 */
NIMBREL_API void undo(void);
NIMBREL_API void redo(void);

/** Returns when everything that was asked of undo and redo is done; the camera can then be set for the result. */
NIMBREL_API void nimbrelWaitForHistory(void);

/** Forgets all entries. Backup files stay on the disk. */
NIMBREL_API void clearHistory(void);

/* ---- Header -----------------------------------------------------------------------------------------------------
 * The 124-byte header of a file; docs/format.md has its layout. Callable from any thread. */

/** Copies the header as it now stands to `out`, 124 bytes. */
NIMBREL_API void getHeader(int id, char* out);

/**
 * Replaces the header, in memory and in the file.
 *
 * in  124 bytes, taken as they are
 *
 * A cloud that is open read-only is treated like an unknown id.
 */
NIMBREL_API void setHeader(int id, char* in);

/** The version of the file, 17 or 18; 0 for an unknown id. */
NIMBREL_API int getVersion(int id);

/** The header's reserved value: 0 in files of version 17 and 18. */
NIMBREL_API int64_t getReserved(int id);

/** The box in the header, 6 doubles, without the cloud's placement. */
NIMBREL_API void getOrigin(int id, double* out);

/** 1 if the header was marked as changed since the last call, else 0; the call clears the mark. */
NIMBREL_API int headerChanged(int id);

/** 1 if the file is protected, which is when its first protection value is not 0, else 0. */
NIMBREL_API int isProtected(int id);

/**
 * Protects a file, or lifts the protection, and marks the header as changed.
 *
 * value1  not 0 to protect
 * value2  when the file expires, in seconds since 1970; 0 for never. It counts only on a protected file: past it,
 *         frames leave the cloud out
 *
 * A file that is open for writing gets its header written back; one that is read-only changes in memory alone.
 */
NIMBREL_API void setProtection(int id, int64_t value1, int64_t value2);

/* ---- Building a point file or a voxel model ---------------------------------------------------------------------
 * One build at a time: createOPC, addPoints as often as there are points, indexOPC, then poll until the stage is 0.
 * Safe to call from any thread; calls that change the build take turns. getOPCProgress and
 * nimbrelGetBuildReport never wait. Two files are written: the output, and the same name with ".scratch" while the
 * build lasts. Point order matters to which points stand on which level, never to which points are in the file. */

/**
 * Begins a build, cancelling one that is under way.
 *
 * path        the file to make; an existing one is overwritten
 * box         holds every point; points outside are refused. That of a point file is widened by 0.01 on all sides;
 *             that of a voxel model stays as it is, and must be wider than 0 on each axis for the file to open again
 * pointCount  points to come. The work files start at a size that suits it and grow when more come
 * key         as for initEngine
 * buildType   0: version 17, fixed size points, on a grid of 0.0001 units. 1: version 18, about 0.6 of the size,
 *             colours cut to 4 or 5 bits, classes to 4 bits, one point a grid cell. 2: version 90, a voxel model with
 *             the mean colour of each occupied cell. 3 and above: a voxel model without colours
 * voxelSize   of a voxel model, used by no other: the largest mean edge of a cell, above 0
 *
 * Returns false for a refused key, for a voxel size that is not above 0 or too small for the box (more than 2 to the
 * power of 30 cells along an axis, or cells that doubles can't tell apart), and for every voxel model: its build has
 * begun all the same when nimbrelGetBuildReport tells the state 1. A file that can't be made is not reported here:
 * every addPoints then refuses its points, and nimbrelLastError says why.
 */
NIMBREL_API bool createOPC(const wchar_t* path, const double* box, int64_t pointCount, const char* key, int buildType,
                           float voxelSize);

/**
 * Adds points to the build, in the order given; large batches (100,000 and up) are spread over all cores.
 *
 * xyz         3 doubles a point
 * attributes  5 bytes a point
 * count       points; 0 or less adds nothing
 *
 * Returns false when there is no build, or when the work files could not take all of the points: the disk is full, or
 * they could not be made. getOPCProgress(0) then counts only those that were taken. A point outside the box is refused
 * without a word here, and not counted.
 */
NIMBREL_API bool addPoints(const double* xyz, const unsigned char* attributes, int count);

/**
 * Turns the points into the finished file, on worker threads. Returns at once; does nothing while an earlier call
 * still runs.
 *
 * noiseRadius      drops points with fewer than 26 others nearer than this; 0 for none, at most 1.0
 * filterSize       grid that points are rounded to, rounded itself to the nearest 0.0001; 0.0001 to 10.0
 * duplicateRadius  drops points nearer than this to one that is kept; 0 for none, at most 10.0
 * indexParameter   stored in the header as it is
 *
 * Noise and duplicates are looked for among the points of one leaf of the tree, some 16,000, not across leaves. A
 * cloud that fits into a single node keeps all its points, unrounded and unfiltered. A voxel model knows no filters:
 * of the four values it takes indexParameter alone.
 */
NIMBREL_API void indexOPC(double noiseRadius, double filterSize, double duplicateRadius, double indexParameter);

/**
 * Ends a build without a result, at any time. The scratch file is removed; the output stays behind as a file that no
 * reader accepts: cut to the length of the last finished build of this process, 0 if there was none.
 */
NIMBREL_API void cancelOPC(void);

/**
 * How far the build is.
 *
 * selector  0: points that found a home. 1: points compiled; those that a filter drops count too. Any other: the
 *           stage, 0 idle, 1 compiling, 2 finalising
 */
NIMBREL_API int64_t getOPCProgress(int selector);

/** What became of the points of a build. */
typedef struct NimbrelBuildReport {
    int32_t state;       /* 0 no build yet, 1 under way, 2 finished, 3 failed (see nimbrelLastError), 4 cancelled */
    int32_t nodes;       /* nodes written, once finished */
    int64_t offered;     /* points given to addPoints */
    int64_t outside;     /* refused: outside the box, or a coordinate that is not a number */
    int64_t noRoom;      /* refused: the work files could not take them */
    int64_t undividable; /* dropped: more than 16383 points in a node too small to divide, at most 0.0001 wide */
    int64_t noise;       /* dropped by the noise filter */
    int64_t duplicates;  /* dropped by the duplicate filter */
    int64_t sameCell;    /* dropped by the version 18 form: a second point in a grid cell, or one in a node's first */
    int64_t written;     /* points in the file, once finished */
} NimbrelBuildReport;

/** Copies what is known of the current or last build to `out`. Any thread, any time. */
NIMBREL_API void nimbrelGetBuildReport(NimbrelBuildReport* out);

/* ---- Staging: keep points in a temporary file until their count and box are known --------------------------------
 * createTempCache, addCachePoints as often as needed, then createOPC with what the cache counted, rewindCache, and
 * transferCachePoints for each batch in order. Called from one thread. Coordinates are kept as 32-bit floats relative
 * to the first point, so their precision falls off with the distance from it. */

/** Makes the temporary file, dropping an earlier one. False when the file can't be made or the earlier not closed. */
NIMBREL_API bool createTempCache(const wchar_t* path);

/** Appends a batch; shapes as for addPoints. False without a file, or when the file could not take all of it. */
NIMBREL_API bool addCachePoints(const double* xyz, const unsigned char* attributes, int count);

/** Points staged, also after closeTempCache. */
NIMBREL_API int64_t getCacheCount(void);

/**
 * The box of the staged points, 6 doubles, in a frame of its own: x, then -z, then y. For createOPC its values are
 * out[0], out[2], -out[4], out[3], out[5], -out[1]. Before the first point: the largest doubles, then the lowest.
 */
NIMBREL_API void getCacheBoundingBox(double* out);

/** Ends writing and goes to the first point for transferCachePoints. */
NIMBREL_API void rewindCache(void);

/**
 * Adds the next points of the cache to the build.
 *
 * batch  number of an addCachePoints call, from 0: as many points as it had are read from where the last
 *        transfer ended. Batches are therefore transferred in order. A number out of range does nothing
 * a, b   3 doubles each: points are moved by b minus a
 */
NIMBREL_API void transferCachePoints(int batch, const double* a, const double* b);

/** Closes and removes the file. True also without one. */
NIMBREL_API bool closeTempCache(void);

/* ---- Frames -----------------------------------------------------------------------------------------------------
 * Two halves with clocks of their own. setCamera tells where a window's camera stands: worker threads then find the
 * nodes that it sees, load them and unload those that no window sees any more. setRenderCamera and render draw what is
 * there, never waiting for the rest; the load notification tells a host when another frame is worth drawing.
 *
 * render, findClosestPoint and nothing else use OpenGL: they are called from one thread, with the host's context of
 * OpenGL 4.1 (core profile) or later current, whatever window system it comes from. Without one they do nothing. The
 * context may be destroyed and another take its place from one frame to the next. Drawing in several contexts by turns
 * works where they share objects; where they do not, each change loads everything into the graphics memory again, and
 * what the other context held stays there until it is destroyed. Everything else here may be called from any thread. */

/**
 * Tells where the camera of a window stands, and returns at once: nodes are looked for and loaded on worker threads,
 * with the values of this call and with the clip box as it is armed now. A camera that still waits is replaced by the
 * next one of its window, window 0 apart.
 *
 * view, projection  matrices; the projection as OpenGL has it, depth from -1 to 1
 * eye               place of the camera in the world, 3 doubles
 * fovDegrees        field of view
 * viewSize          height of the view in pixels
 * waitForCache      true: return when everything that this camera sees is loaded
 *
 * A node is seen when its bounding sphere meets the view, when it is not clipped away, and when the spacing of its
 * points is coarse enough on the screen; setPointCloudProperties's lodFactor shifts that last limit.
 */
NIMBREL_API void setCamera(int window, const double* view, const double* projection, const double* eye,
                           double fovDegrees, int viewSize, bool waitForCache);

/**
 * Sets what the next frames draw.
 *
 * window             whose nodes to draw
 * view, projection   matrices
 * offscreenViewport  x, y, width, height of the picture that the clouds are drawn into, in pixels
 * onscreenViewport   x, y, width, height of the place on the host's framebuffer that the picture is stretched over. Of
 *                    it, only what lies within the rectangle of offscreenViewport is drawn
 * lightState         0 unlit, 1 lit, 2 the light alone, as grey; a selection is green
 * lightDirection     3 floats, from the light, in the world; all 0 for no light
 */
NIMBREL_API void setRenderCamera(int window, const double* view, const double* projection, const int* offscreenViewport,
                                 const int* onscreenViewport, int lightState, const float* lightDirection);

/**
 * Whether frames draw every node in the view, however small, reading those that are not loaded on the spot: slow, for
 * pictures to keep. False at the start. "The view" is that of the last cloud at the last camera.
 */
NIMBREL_API void setForceRender(bool force);

/**
 * Draws a frame of all enabled clouds onto the framebuffer that is bound, whose depths it tests and writes, so that the
 * clouds and the host's own picture hide each other. Clears nothing of the host's. A cloud whose protection has ended
 * is not drawn.
 *
 * Leaves the host's framebuffer bound, no program, vertex array or texture (units 0 and 1, 0 active), and no buffer
 * bound for vertices; blending and the scissor test off, the depth test on with GL_LESS, writing of colours and depths
 * on; the viewport at onscreenViewport, the clear colour at 0 and the clear depth at 1. No OpenGL error is left.
 *
 * Afterwards the clip box and the distance colouring are disarmed: a host that wants them arms them for each frame.
 * Nothing is drawn when the offscreen picture is empty or larger than the driver can make.
 */
NIMBREL_API void render(void);

/**
 * Whether the bounding sphere of a node meets the view of a camera.
 *
 * Returns false for an unknown id or a node outside the tree.
 */
NIMBREL_API bool isNodeInFrustum(int id, const double* view, const double* projection, int node);

/**
 * Arms colouring by the distance from a plane, for the next frame.
 *
 * normal, point               of the plane, 3 doubles each, in the world
 * blend                       share of a point's own colour in the result, 0 to 1
 * offset                      distance that counts as 0
 * shadDist                    distance over which the colours run
 * repeat                      0: one run, the last colour beyond. 1: one run from 0 to shadDist, points outside keep
 *                             their own colour. 2: one run after the other, on both sides
 * hue                         true: a rainbow. False: from colour1 over colour2 to colour3
 * colour1, colour2, colour3   3 floats each, 0 to 1
 */
NIMBREL_API void activateShader(const double* normal, const double* point, float blend, float offset, float shadDist,
                                int repeat, bool hue, const float* colour1, const float* colour2, const float* colour3);

/**
 * Has the next frame write its clouds to a file, as they are before lighting: plain PPM, whose numbers are text, of the
 * size of the offscreen picture, black where nothing is drawn. Logs "Couldn't open file screenshot file" when the
 * file can't be made. A further call before that frame replaces the path. The path is copied.
 */
NIMBREL_API void savePPMImage(const wchar_t* path);

/**
 * Points that are loaded and that a window sees, over all enabled clouds, with the cells of voxel models that it sees.
 * Not below a node that is not loaded.
 */
NIMBREL_API int getWindowPointCount(int window);

/** A matrix passed by value. */
typedef struct NimbrelMatrix {
    double m[16];
} NimbrelMatrix;

/* ---- Filters ----------------------------------------------------------------------------------------------------
 * Callable from any thread, but not while an operation that uses them runs. */

/**
 * Arms the clip box for the next frame or operation, and for the cameras until then.
 *
 * planes  36 doubles: for each of six faces the normal, which points out of the box, and a point on the face. First one
 *         face of each axis, then the three opposite ones in the same order. In the world
 * rgba    tint of what lies inside, 4 floats of 0 to 255; the fourth is how much of it
 * mode    0: what lies outside is hidden. 1: it stays. 2: it is hidden, and a rim of the tint's colour is drawn inside
 *         along the faces
 */
NIMBREL_API void activateClipBox(const double* planes, const float* rgba, int mode);

/**
 * Sets how the classes of points are drawn, until it is set again.
 *
 * table  4 bytes for each of 256 classes: red, green, blue, and not 0 to hide the class. The colours are used by clouds
 *        with useLasColours; hidden is hidden in all of them
 */
NIMBREL_API void setLasClassifications(const unsigned char* table);

/**
 * Arms a match for the next selection: only points near a target are taken.
 *
 * matchColour, matchIntensity         what to compare; neither disarms, and nothing else is then looked at
 * target                              5 bytes: red, green, blue, intensity, and one that is not compared
 * colourTolerance, intensityTolerance  largest difference of each channel, in units of 5 steps of 255; equal passes
 */
NIMBREL_API void activateMatch(bool matchColour, bool matchIntensity, const unsigned char* target,
                               float colourTolerance, float intensityTolerance);

/**
 * Arms painting with a colour: the next selection by a volume or on the screen paints points and selects none.
 *
 * rgb       3 bytes
 * coverage  per cent of the points to paint: of each hundred in a row the last ones. The count runs on from one stroke
 *           to the next; at 100 every point is painted
 * strength  per cent of the colour to mix in. The arithmetic is in 32-bit float and cuts off: 0 still lowers some
 *           channels by 1
 *
 * Files of version 18 keep the upper 5 bits of red and green and the upper 4 of blue.
 */
NIMBREL_API void activateColourProcess(const unsigned char* rgb, int coverage, int strength);

/**
 * Arms painting that changes the brightness or the contrast, as above.
 *
 * amount      twice the steps that are added to each channel; for the contrast twice the per cent: -200 makes all grey
 * brightness  false: contrast
 */
NIMBREL_API void activateLuminanceProcess(int amount, bool brightness);

/* ---- Selecting and painting -------------------------------------------------------------------------------------
 * A selection is a mark on each point, kept while the cloud is open and not saved. It belongs to the node that holds
 * the point: getNodeSelections reads it, frames show it.
 *
 * A point is taken when the shape takes it, the clip box holds it (activateClipBox), it matches (activateMatch) and its
 * class is not hidden (setLasClassifications). What it is taken for: to be marked; with `deselect` to be unmarked; with
 * an armed painter to be painted in the file, its mark staying. A node that lies wholly in the shape and needs no look
 * at its points is marked, unmarked or painted as a whole; there `deselect` unmarks even with an armed painter.
 *
 * Clouds that are disabled, masked or protected do not take part. Where the clip box is armed, a cloud with
 * ignoreClipBox turns it off for itself and for the clouds after it. While changes are recorded, a node that can't be
 * backed up for want of space is left alone with all below it. A node whose points must be looked at and can't be read
 * is left as it is, and nimbrelLastError tells of it; its children take part.
 *
 * These run on all cores and return when they are done. Any thread; two at a time on the same clouds can undo each
 * other's marks. Nothing else is reported: ask getSelectedPointsCount. At their end the clip box and the match are
 * disarmed, and after the first two the painter, even if nothing was done. */

/**
 * Selects in a sphere or in a box.
 *
 * data     count 4: the centre and the radius. count 15: the centre, and for each of three axes its direction, 3
 *          doubles, and half the size along it. Places and directions are in the world; lengths are in the cloud's
 *          units, its scale not applied. A point on the surface is inside
 * count    doubles in data, 4 or 15; any other selects nothing
 * outside  of a box: what lies outside is taken. A sphere has no outside
 *
 * A sphere passes over clouds that are open read-only; a box does not.
 */
NIMBREL_API void selectPointsByVolume(const double* data, int count, bool deselect, bool outside);

/**
 * Selects by a polygon on the screen, through everything that lies behind it.
 *
 * view, projection  of the picture
 * viewport          x, y, width, height of it
 * points            x and y of each corner, y running down from the top. Edges may cross: the even-odd rule holds
 * count             corners; below 3 nothing is selected
 * outside           what lies outside the polygon is taken, and what lies behind the viewer or beyond the far plane
 *
 * Passes over clouds that are open read-only. Whether a node of the tree is in the polygon is estimated from the size
 * of its bounding sphere on the screen, which can miss points close to the viewer's plane.
 */
NIMBREL_API void selectPointsByScreen(NimbrelMatrix view, NimbrelMatrix projection, const int* viewport,
                                      const int* points, int count, bool deselect, bool outside);

/**
 * Selects everything. Where a clip box, a match or hidden classes are to be heeded, points are taken as by a sphere
 * around it all, an armed painter included; else all marks are set at once, and recorded selections can't be undone
 * any more. Does not disarm the painter. Read-only clouds take part.
 */
NIMBREL_API void selectAllPoints(void);

/** Marks what is not marked, and the other way round. No filter applies. Read-only clouds take part. */
NIMBREL_API void invertSelectedPoints(void);

/** Unmarks everything in all enabled clouds, and ends the undoing of recorded selections. */
NIMBREL_API void clearSelectedPoints(void);

/** Marked points of all enabled clouds. */
NIMBREL_API int64_t getSelectedPointsCount(void);

/**
 * Lists the marked points of all enabled clouds, page by page, in the world.
 *
 * positions  3 doubles a point
 * colours    attributes, 5 bytes a point
 * start      points to leave out at the beginning
 * count      points that the buffers have room for
 *
 * Reads nodes that are not resident. A point that can't be read is its node's minimum corner in black. What is beyond
 * the last point is left as it was.
 */
NIMBREL_API void getSelectedPoints(double* positions, char* colours, int64_t start, int64_t count);

/** Whether frames leave out the marked points of a cloud; false after a load. */
NIMBREL_API void setHideSelectedPoints(int id, bool hide);

/* ---- Point queries ----------------------------------------------------------------------------------------------
 * Over the loaded points of all enabled clouds. A point's colour is attributes, 5 bytes. */

/**
 * The point under the cursor, or the one drawn nearest to it within 25 pixels, as the last frame showed it. Called as
 * render is.
 *
 * view, projection, viewport  those of the last frame, the viewport being the offscreen one
 * x, y                        the cursor in the offscreen picture, y from the top
 * result                      in: result[3] is the largest distance to accept, between clip space vectors. out: the
 *                             point in the world and its distance. Without a point, result[0] to result[2] can
 *                             hold the pixel x, y (from the bottom) and depth
 * colour                      out: 5 bytes
 *
 * A voxel model gives the centre of a cell, out of those that hold the place and have less than two children; it clips
 * nothing, and leaves the fifth byte of `colour` as it was.
 *
 * Returns the id of the cloud, or -1.
 */
NIMBREL_API int findClosestPoint(NimbrelMatrix view, NimbrelMatrix projection, const int* viewport, int x, int y,
                                 double* result, unsigned char* colour);

/**
 * The point nearest to a place in the world, looked for in the nodes that hold the place. Any thread.
 *
 * world           3 doubles
 * result, colour  as for findClosestPoint; left as they were without a point
 *
 * Points outside an armed clip box are passed over, by the placement of the last cloud at the last camera.
 */
NIMBREL_API int findWorldPoint(NimbrelMatrix view, NimbrelMatrix projection, const double* world, double* result,
                               unsigned char* colour);

/**
 * Lists points that are loaded and that a window sees, in the coordinates of the file. Cells of voxel models are none.
 *
 * positions  3 doubles a point
 * colours    5 bytes a point
 * start      points to leave out at the beginning
 * count      points that the buffers have room for
 *
 * A count from getWindowPointCount can be out of date when nodes arrive or go meanwhile. What is beyond the last point
 * is left as it was. Any thread.
 */
NIMBREL_API void getWindowPoints(int window, double* positions, char* colours, int64_t start, int64_t count);

/* ---- Voxel models -----------------------------------------------------------------------------------------------
 * A cloud as a model of cubes, for programs that know no points: its points are counted in the cells of a regular grid,
 * and each cell with at least 11 points becomes a cube, or a block. One export at a time; the progress may be asked for
 * on any thread meanwhile. */

/**
 * Writes a cloud as a model file, on the calling thread; points are binned on as many as there are cores. The stored
 * points count, in the coordinates of the file: neither placement, filters nor what is loaded makes a difference.
 * Clouds can be opened meanwhile, but not closed, until the points are read.
 *
 * format        0: OBJ, with a material (.mtl) and a texture (.png) beside it, named as `path` up to the first point of
 *               its name and with underscores for blanks. 1: a schematic of blocks, uncompressed NBT. Any other: STL as
 *               text, for which 2 should be used; others leave voxelStageLimit at 0 meanwhile
 * path          the file; it and its companions are replaced if they exist
 * useIntensity  schematics: blocks by intensity, not colour. The low byte counts
 * voxelSize     side of a cell in scaled units, taken to 0.01 to 1000; NaN counts as 0.01
 * scale         what coordinates are multiplied by, 1 for none
 *
 * OBJ: 8 corners, a texture coordinate and 12 triangles a cube, with X, Z and -Y as the coordinates. The texture has a
 * texel a cube, the mean colour of its points. STL: 12 facets a cube, in X, Y and Z. Both keep six significant digits,
 * and put a cube half a cell nearer to the origin of the grid than its cell. Schematic: a block for each cell of the
 * whole grid, air where there is no cube; Width is X, Height is Z, and Length is Y from its far end. The sizes are
 * written as they come, cut to 16 bits, and to 32 for the size of an array: beyond 32767 cells a side or 2147483647 in
 * all other programs can't read it.
 *
 * A point on the far face of a box whose side is a whole number of cells is counted in the first cell of the next row,
 * as it always was. Sums of colours wrap around from some 8 million points a cell on.
 *
 * Nothing is reported but through nimbrelGetVoxelReport and nimbrelLastError, which the call clears when it begins. A
 * path that can't be opened leaves no file; on a full disk the file ends where it was full; an unknown id gives a model
 * of nothing, an OBJ without a texture among them. A node that can't be read is left out.
 *
 * Memory: some 80 bytes a cell that holds points, whatever the size of the grid.
 */
NIMBREL_API void exportVoxelModel(int id, int format, const wchar_t* path, int useIntensity, double voxelSize,
                                  double scale);

/**
 * How far the export is, from 0 to 1 over all its stages: reading the points, then what the format writes; 2 while
 * there is no export, so that one that is finished reads 2 and not 1. Any thread.
 *
 * It stands still while an OBJ's texture coordinates (at 0.5) and triangles (at 0.75) are written, and at 1 while STL
 * is. A schematic's file holds at any time at least the cells that are counted.
 */
NIMBREL_API float getVoxelProgress(void);

/**
 * What getVoxelProgress is made of: stages of the export, stages that are over, steps of the stage that runs, steps
 * done. 1 each without an export. Another thread changes them at any time; a host that reads them itself uses atomic
 * reads.
 */
NIMBREL_API extern int32_t voxelStageLimit, voxelStageCount, voxelProgressLimit, voxelProgressCount;

/** What became of an export. */
typedef struct NimbrelVoxelReport {
    int32_t state;       /* 0 no export yet, 1 under way, 2 finished, 3 failed (see nimbrelLastError) */
    int32_t unreadNodes; /* nodes whose points could not be read and are missing */
    int64_t points;      /* points that were counted in cells */
    int64_t cells;       /* cells that hold points */
    int64_t cubes;       /* cells that hold enough of them to be in the model */
    int64_t sizeX;       /* cells of the grid along each axis */
    int64_t sizeY;
    int64_t sizeZ;
} NimbrelVoxelReport;

/** Copies what is known of the current or last export to `out`. Any thread, any time. */
NIMBREL_API void nimbrelGetVoxelReport(NimbrelVoxelReport* out);
/* ---- Analysis: clouds against clouds and meshes ------------------------------------------------------------------
 * Callable from any thread; each call shares the table of clouds, spreads over the processing threads, and returns when
 * it is done. Masked and protected clouds take part. A mesh is `count` triangles of 9 doubles, corner by corner, in the
 * world once `matrix` is applied: a matrix whose top three rows count as they are. A degenerate triangle is passed
 * over. A node that can't be read has no points here, and nimbrelLastError tells of it. Voxel models are passed over.
 *
 * A triangle acts through the prism that stands exactly over it, up to a thickness on both sides. */

/**
 * Where two clouds touch: at most one contact for each pair of nodes that touch and have no children that do.
 *
 * limit  contacts wanted
 * out    3 doubles a contact, room for `limit`: the point of cloud A, in the world
 *
 * Two points touch when nearer than about a 75th of a side of each of their nodes, and only every 25th point of a node
 * is looked at, so that clouds of any size can be tested. Returns the number of contacts; `limit` of them may mean that
 * there are more. An unknown or disabled cloud, or twice the same id, gives 0. Where ids repeat the newest cloud
 * counts.
 */
NIMBREL_API int doPointCloudCollision(int idA, int idB, int limit, double* out);

/**
 * Where a mesh touches a cloud: the points in the prisms of its triangles, each as often as prisms hold it.
 *
 * limit  contacts wanted
 * out    3 doubles a contact, room for `limit`, in the world
 *
 * The thickness is the cloud's scale times the smaller of 0.01 and a tenth of the distance from the triangle's centroid
 * to its farthest corner. Points of nodes with two children are not looked at. Contacts come in no particular order
 * once there is more than one node. Returns their number; 0 for an unknown or disabled cloud.
 */
NIMBREL_API int doMeshCollision(int id, int limit, double* out, const double* triangles, int count,
                                const double* matrix);

/**
 * Gives the points of all enabled clouds that are near a mesh their distance from it as class, in the files: from 0 on
 * the plane of the triangle to 255 (version 18: 15) on the faces of its prism. A point in several prisms gets the
 * distance from the last of their triangles; points in none keep their class.
 *
 * thickness  of the prisms, above 0, in units of the world. Any other number does nothing
 *
 * Can't be undone. Clouds that are open read-only keep their classes. Each node of a cloud is read once for all
 * triangles of a part of the mesh, and written when all of these are done. One call works at a time, further ones wait.
 */
NIMBREL_API void classifyPointsByDistance(const double* triangles, int count, const double* matrix, double thickness);

/**
 * Ends the calls of classifyPointsByDistance that are under way, from another thread, and returns when they have ended.
 * Nodes that were written stay so. Calls that begin later are not affected.
 */
NIMBREL_API void abortPointsByDistance(void);

/**
 * The same for all functions of this family and for testSurface and calculateErrors: they return what they have found
 * so far. Does not wait for these.
 */
NIMBREL_API void nimbrelAbortAnalysis(void);

/**
 * How far the call of this family is that is under way, or was last, from 0 to 1; for a progress bar. 1 once it has
 * ended, less when it was aborted. Of several at a time it is one or the other. Never waits.
 */
NIMBREL_API double nimbrelGetAnalysisProgress(void);

/* ---- Surfaces: how a mesh and the points by it agree --------------------------------------------------------------
 * The points by a triangle are those that its prism holds, which here reaches `thickness` beyond the triangle on all
 * sides, and that are no farther from its centroid than its farthest corner and twice the thickness. Triangles are in
 * the world; that last length is in the cloud's units, its scale not applied. Clouds that are disabled, masked or
 * protected do not take part. A degenerate triangle is passed over. Lengths are in thousandths of a unit: millimetres,
 * where the unit is a metre. These run on the calling thread and return when they are done; nimbrelGetAnalysisProgress
 * tells how far they are, and nimbrelAbortAnalysis ends them. Any thread. */

/**
 * Selects the points by a triangle, in addition to what is selected, and counts the cells of a grid over the triangle.
 *
 * triangle   9 doubles
 * stats      2 numbers that are added to: cells of the grid, and those of them that hold no point. Null: no counting. A
 *            triangle without points adds nothing. The numbers stop at INT32_MAX
 * thickness  of the prism
 * cellSize   of the grid; at 0 or less nothing is counted
 *
 * Frames do not show the new marks until the node is drawn anew. A triangle with more than 268,435,456 cells is
 * selected by and not counted, and nimbrelLastError says so. Of a cloud that is placed, the places in the file decide
 * about the cells: it is meant for clouds without a placement.
 */
NIMBREL_API void selectPointsByTriangle(const double* triangle, int* stats, double thickness, double cellSize);

/**
 * How much of a mesh is covered by points: the share of the cells with points, over the triangles that have points by
 * them, from 0 to 1; 0 without any cell.
 *
 * triangles            9 doubles a triangle, `count` of them
 * thickness, cellSize  as above
 *
 * The points stay selected.
 */
NIMBREL_API double testSurface(const double* triangles, int count, double thickness, double cellSize);

/**
 * How far the points by each triangle of a mesh lie from its plane.
 *
 * results  out: 4 doubles, the smallest distance, the largest, the mean over all points, and the mean over all
 *          triangles of the standard deviation, in which a triangle without points counts as 0. Without any point
 *          9999999999, 0, 0, 0
 *
 * Clears the selection; the points by the last triangle are selected at the end, unless it was aborted.
 */
NIMBREL_API void calculateErrors(const double* triangles, int count, double thickness, double* results);
/* ---- Cloud storage ----------------------------------------------------------------------------------------------
 * Point files in an account of the Glimmet service: a web API, and an object store that it signs URLs of. A host names
 * the service with setGlimmetEndpoints, signs in with loginGlimmet, and opens files with loadPointCloudGlimmet.
 *
 * Everything goes over TLS, with the server's certificate and host name checked against the system's store
 * (SSL_CERT_FILE and SSL_CERT_DIR work as everywhere), and no redirect is followed. Without endpoints, and before a
 * sign-in, nothing is sent and every call gives its failure result at once; nimbrelLastError then says so. Callable
 * from any thread; calls block for the length of their requests, each of which gives up after 5 seconds without an
 * answer (300 to connect).
 * Passwords, tokens and the signatures in URLs are never logged. */

/**
 * Names the service, and makes all connections anew.
 *
 * apiEndpoint     the web API, "https://host[:port]"; another one than before signs out
 * objectEndpoint  the object store, in the same form. URLs that do not begin with it are never asked for
 * webOrigin       what reads of objects send as "Origin"; empty for none
 *
 * Null keeps a value. A slash at the end is dropped. What is no https:// endpoint counts as none.
 */
NIMBREL_API void setGlimmetEndpoints(const char* apiEndpoint, const char* objectEndpoint, const char* webOrigin);

/**
 * Signs in. The account signed in before is signed out first, whatever comes of it.
 *
 * username, password  of the account. They travel in a header, and can't hold control characters
 * product             the number of the calling product
 *
 * Returns 0; 1 when the service refuses the sign-in; 2 when it fails; -1 without an answer, or with any other one.
 */
NIMBREL_API int loginGlimmet(const wchar_t* username, const wchar_t* password, int product);

/**
 * Opens a point file in the account, or any URL in the object store. Reads header and tree, not the points; nodes are
 * read as they come into view, several at a time.
 *
 * name  name in the account, as uploaded, or a whole URL that begins with "https://", for which no sign-in is needed
 *
 * Returns the id as loadPointCloudFile does, or -1: the engine is not armed, the name can't be signed, the object can't
 * be read, or it is no sound point file. nimbrelLastError tells which.
 *
 * The cloud is read only. The URL is signed once, here: when it expires, further nodes stay absent. A node that was
 * read is kept in memory, 10000 nodes over all clouds, those used least recently going first; only the root is read
 * anew each time that it is wanted. An object that changes while it is open gives no more nodes, if the store tells its
 * version.
 */
NIMBREL_API int loadPointCloudGlimmet(const wchar_t* name);

/**
 * Fetches any URL, whatever its status.
 *
 * host    "http://host[:port]" or "https://host[:port]"; without a scheme it is plain HTTP
 * path    path and query, from "/" on
 * buffer  out: the body, without a zero at its end; never more than 1 MiB (1,048,576 bytes), which is what to give
 *
 * Returns the bytes written, 0 without an answer. Gives up after 2 seconds of silence, on headers that take more than
 * 15 seconds, and on a body that comes in drops.
 */
NIMBREL_API int getURLData(const char* host, const char* path, char* buffer);

/**
 * Begins to upload a file into the account, under its bare name, and returns. Files from 5 MiB up go in parts of 5 MiB,
 * several at a time; a part that fails is tried again, with growing pauses, until it is accepted or the host aborts.
 *
 * Returns false, and uploads nothing, when the file can't be read or nobody is signed in.
 *
 * The file must not change meanwhile: one that gets shorter fails the upload. A second upload runs beside the first,
 * and progress and state are then those of the second. At the end of the process uploads are aborted and waited for.
 */
NIMBREL_API bool uploadGlimmetFile(const wchar_t* path);

/**
 * Ends all uploads at once, in the service too. Does not wait for the threads of the upload. With none under way the
 * service is told all the same, under the name and number of the last one.
 */
NIMBREL_API void abortGlimmetUpload(void);

/**
 * How far the upload is: 0 to 1, and 1 once it ended, however that was: nimbrelGlimmetUploadState tells. Writes the
 * figures to the log.
 */
NIMBREL_API float getGlimmetUploadProgress(void);

/**
 * What became of the upload: 0 there was none, 1 it is under way, 2 the file is in the account, 3 it failed or was
 * refused (see nimbrelLastError), 4 it was aborted. Progress can be 1 a while before this is 2.
 */
NIMBREL_API int nimbrelGlimmetUploadState(void);

/**
 * The files in the account: name, date, size, each with a comma behind it, for one file after the other. A name begins
 * with "/"; it is left out, comma included, where the service gave a key without one. Asks up to 10 times while the
 * account is in use and the list is empty, since what was just uploaded may not show yet.
 *
 * The text is valid until the calling thread asks again; empty on failure.
 */
NIMBREL_API const wchar_t* listGlimmetFiles(void);

/** Deletes a file of the account. False when the service refuses, which it does with names that hold a double quote. */
NIMBREL_API bool deleteGlimmetFile(const wchar_t* name);

/**
 * Has the service send someone a link to a file of the account. nimbrelLastError is empty afterwards when the service
 * took it on; whether it did send it, nothing tells. Without a link no mail is asked for.
 *
 * duration  how long the link is good, in the unit of the service
 */
NIMBREL_API void emailGlimmetLink(const wchar_t* email, const wchar_t* name, int duration);

/** Bytes that the account uses; 0 on failure. An answer is good for 2 seconds, and longer while it is asked for more often. */
NIMBREL_API int64_t getGlimmetStorage(void);

/** Bytes that the account may use; otherwise as getGlimmetStorage. */
NIMBREL_API int64_t getGlimmetStorageLimit(void);

/** The tier of the account; 0 on failure. Any tier but 1 is asked for once in a sign-in. */
NIMBREL_API int getGlimmetTier(void);

/** Drops all connections to the service, for new ones to be made. Sends nothing; requests under way end on their own. */
NIMBREL_API void resetGlimmetNetwork(void);

/* ---- Load notification ------------------------------------------------------------------------------------------ */

/**
 * Called when a node's points arrive or go, on the thread that loads or unloads, with the node locked: it must be
 * quick and must not call the engine.
 *
 * loaded          true for arrived, false for gone
 * nodeIndex       the node's number
 * vertices        20 bytes a point: x, y, z as floats relative to the corner, red, green, blue, intensity, class,
 *                 selected, two unused; null when gone. Valid during the call
 * pointCount      points of the node
 * minX to minZ    the minimum corner of the node's box
 */
typedef void (*NimbrelCacheCallback)(bool loaded, uint64_t nodeIndex, unsigned char* vertices, int pointCount,
                                     double minX, double minY, double minZ);

/** Registers the load notification for all clouds. Null is ignored: one that was set can be replaced, not removed. */
NIMBREL_API void registerCacheCallback(NimbrelCacheCallback callback);

#ifdef __cplusplus
}
#endif

#endif
