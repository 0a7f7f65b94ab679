// The module velk._velk: libvelk's objects for Python, by the stable interface of 3.11.
//
// Each object has a lock of its own, as other threads may call it while the interpreter's is
// released. None can be copied, pickled or derived from, and a process that forks can't go on with
// one that its parent has begun to use: the library's threads are not there.
#define PY_SSIZE_T_CLEAN
#define Py_LIMITED_API 0x030b0000
#include <Python.h>
#include <stddef.h>
#include <string.h>
#include <structmember.h>
#include <unistd.h>
#include <velk.h>

typedef struct {
    PyObject *error, *cut_error;
    PyTypeObject *compressor, *decompressor;
} module_state;

static module_state *state_of(PyObject *self) {
    return PyType_GetModuleState(Py_TYPE(self));
}

// Errors --------------------------------------------------------------------------

// Returns NULL. report: of a damaged archive; may be null.
static void *raise_status(const module_state *state, velk_status status,
                          const velk_report *report) {
    const char *const text = velk_status_text(status);
    if (status == VELK_ERROR_ARGUMENT) return PyErr_Format(PyExc_ValueError, "%s", text);
    if (status == VELK_ERROR_MEMORY) return PyErr_Format(PyExc_MemoryError, "%s", text);
    if (PyErr_Occurred()) return NULL; // of the archive's file
    PyObject *const type = report != NULL && report->cut ? state->cut_error : state->error;
    if (status != VELK_ERROR_DAMAGED || report == NULL) return PyErr_Format(type, "%s", text);
    const unsigned long long block = report->damaged_block, offset = report->damaged_offset;
    PyObject *const message =
        PyUnicode_FromFormat("%s, at block %llu, offset %llu", text, block + 1, offset);
    PyObject *const error = PyObject_CallFunction(type, "N", message);
    PyObject *const places[] = {PyLong_FromUnsignedLongLong(block),
                                PyLong_FromUnsignedLongLong(offset)};
    if (error != NULL && places[0] != NULL && places[1] != NULL &&
        PyObject_SetAttrString(error, "block", places[0]) == 0 &&
        PyObject_SetAttrString(error, "offset", places[1]) == 0)
        PyErr_SetObject(type, error);
    Py_XDECREF(places[0]);
    Py_XDECREF(places[1]);
    Py_XDECREF(error);
    return NULL;
}

// Settings ------------------------------------------------------------------------

static const struct {
    const char *name;
    size_t offset, bytes;
} kSettings[] = {
#define SETTING(name)                                                                              \
    { #name, offsetof(velk_options, name), sizeof(((velk_options *)0)->name) }
    SETTING(block_size), SETTING(threads),     SETTING(stages_off), SETTING(fixed_block_size),
    SETTING(level),      SETTING(no_fallback), SETTING(plain),
#undef SETTING
};
enum { kSettingCount = sizeof kSettings / sizeof *kSettings };

static int set_setting(velk_options *options, const char *name, PyObject *value) {
    for (size_t i = 0; i < kSettingCount; ++i) {
        if (strcmp(kSettings[i].name, name) != 0) continue;
        PyObject *const number = PyNumber_Index(value);
        if (number == NULL) return 0;
        const unsigned long long bits = PyLong_AsUnsignedLongLong(number);
        Py_DECREF(number);
        if (PyErr_Occurred() && !PyErr_ExceptionMatches(PyExc_OverflowError)) return 0;
        if (PyErr_Occurred() || bits >= 1ull << (8 * kSettings[i].bytes)) {
            PyErr_Format(PyExc_ValueError, "%s is out of its bounds: %R", name, value);
            return 0;
        }
        void *const place = (char *)options + kSettings[i].offset;
        if (kSettings[i].bytes == 1) {
            *(uint8_t *)place = (uint8_t)bits;
        } else {
            *(uint32_t *)place = (uint32_t)bits;
        }
        return 1;
    }
    PyErr_Format(PyExc_TypeError, "no setting has the name '%s'", name);
    return 0;
}

// The settings that are given by name, but for `other`, which goes into *value if it is there.
static int get_options(PyObject *settings, velk_options *options, const char *other,
                       PyObject **value) {
    velk_options_init(options);
    PyObject *key, *setting;
    for (Py_ssize_t at = 0; settings != NULL && PyDict_Next(settings, &at, &key, &setting);) {
        const char *const name = PyUnicode_AsUTF8AndSize(key, NULL);
        if (name == NULL) return 0;
        if (other != NULL && strcmp(name, other) == 0) {
            *value = setting;
        } else if (!set_setting(options, name, setting)) {
            return 0;
        }
    }
    if (velk_compress_bound(0, options) != 0) return 1;
    raise_status(NULL, VELK_ERROR_ARGUMENT, NULL);
    return 0;
}

// Objects -------------------------------------------------------------------------

// What each begins with.
typedef struct {
    PyObject_HEAD PyThread_type_lock lock;
} locked_object;

// Takes the object's lock.
static void take(PyThread_type_lock lock) {
    if (PyThread_acquire_lock(lock, NOWAIT_LOCK)) return;
    Py_BEGIN_ALLOW_THREADS PyThread_acquire_lock(lock, WAIT_LOCK);
    Py_END_ALLOW_THREADS
}

// Makes an object, all zero but for its lock.
static void *new_object(PyTypeObject *type) {
    const allocfunc alloc = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    locked_object *const self = (locked_object *)alloc(type, 0);
    if (self == NULL) return NULL;
    self->lock = PyThread_allocate_lock();
    if (self->lock != NULL) return self;
    Py_DECREF(self);
    return PyErr_NoMemory();
}

static void free_object(PyObject *self) {
    PyTypeObject *const type = Py_TYPE(self);
    PyThread_type_lock const lock = ((locked_object *)self)->lock;
    if (lock != NULL) PyThread_free_lock(lock);
    ((freefunc)PyType_GetSlot(type, Py_tp_free))(self);
    Py_DECREF(type);
}

// Compressors and decompressors -----------------------------------------------------

typedef struct {
    PyObject_HEAD PyThread_type_lock lock;
    velk_flow *flow;
    pid_t user; // the process that has called it; 0: none yet
    int broken; // an exception has taken output away
    char eof;   // all is out
    char needs_input;
    PyObject *held; // input that has not been taken: bytes, or null,
    size_t held_at; // from here on
    PyObject *unused;
} flow_object;

static void free_flow(PyObject *object) {
    flow_object *const self = (flow_object *)object;
    // Without its threads there is nobody to wait for; the memory is this process' copy.
    if (self->user == 0 || self->user == getpid()) {
        Py_BEGIN_ALLOW_THREADS velk_flow_close(self->flow);
        Py_END_ALLOW_THREADS
    }
    Py_CLEAR(self->held);
    Py_CLEAR(self->unused);
    free_object(object);
}

// What there is of the output, at most `most` bytes, -1: all, once the input has been taken or the
// action is done. *status: as velk_flow_run returned it. Memory follows the output, not what an
// archive claims.
static PyObject *run_flow(flow_object *self, velk_buffers *buffers, velk_action action,
                          Py_ssize_t most, velk_status *status) {
    enum { kFirstRoom = 65536 };
    size_t room = most < 0 || most > kFirstRoom ? kFirstRoom : (size_t)most, size = 0;
    char *out = PyMem_Malloc(room);
    PyObject *result = NULL;
    while (out != NULL) {
        buffers->out = out + size;
        buffers->out_size = room - size;
        Py_BEGIN_ALLOW_THREADS while ((*status = velk_flow_run(self->flow, buffers, action)) ==
                                      VELK_BUSY) velk_flow_wait(self->flow);
        Py_END_ALLOW_THREADS size = room - buffers->out_size;
        if (PyErr_CheckSignals() < 0) break;
        if (*status != VELK_OK || buffers->out_size != 0 || size == (size_t)most) {
            result = PyBytes_FromStringAndSize(out, (Py_ssize_t)size);
            break;
        }
        room = most < 0 || 2 * room < (size_t)most ? 2 * room : (size_t)most;
        char *const larger = PyMem_Realloc(out, room);
        if (larger == NULL) PyErr_NoMemory();
        if (larger == NULL) break;
        out = larger;
    }
    if (out == NULL) PyErr_NoMemory();
    if (result == NULL) self->broken = 1;
    PyMem_Free(out);
    return result;
}

static int usable(flow_object *self) {
    const pid_t user = getpid();
    if (self->user == 0) self->user = user;
    if (self->user == user && !self->broken) return 1;
    PyErr_SetString(PyExc_ValueError,
                    self->broken ? "an earlier call was broken off" : "begun by another process");
    return 0;
}

static PyObject *raise_of_flow(flow_object *self, velk_status status) {
    velk_report report;
    velk_flow_report(self->flow, &report);
    return raise_status(state_of((PyObject *)self), status, &report);
}

static PyObject *make_flow(PyTypeObject *type, const velk_options *options, int restores,
                           uint64_t input_size) {
    flow_object *const self = new_object(type);
    if (self == NULL) return NULL;
    self->needs_input = restores != 0;
    const velk_status status =
        restores ? velk_flow_restore(&self->flow, options, NULL, NULL)
                 : velk_flow_compress(&self->flow, options, input_size, NULL, NULL);
    if (status == VELK_OK) return (PyObject *)self;
    raise_status(PyType_GetModuleState(type), status, NULL);
    Py_DECREF(self);
    return NULL;
}

static PyObject *new_compressor(PyTypeObject *type, PyObject *arguments, PyObject *settings) {
    velk_options options;
    if (!PyArg_ParseTuple(arguments, ":VelkCompressor") ||
        !get_options(settings, &options, NULL, NULL))
        return NULL;
    return make_flow(type, &options, 0, VELK_SIZE_UNKNOWN);
}

// Compresses the bytes; all is out after VELK_FINISH.
static PyObject *compress_some(flow_object *self, const Py_buffer *data, velk_action action) {
    PyObject *out = NULL;
    take(self->lock);
    if (self->eof) {
        PyErr_SetString(PyExc_ValueError, "the compressor has been finished");
    } else if (usable(self)) {
        velk_buffers buffers = {data != NULL ? data->buf : NULL,
                                data != NULL ? (size_t)data->len : 0, NULL, 0};
        velk_status status;
        out = run_flow(self, &buffers, action, -1, &status);
        if (out != NULL && status != VELK_OK && status != VELK_DONE) {
            self->broken = status != VELK_ERROR_ARGUMENT;
            Py_CLEAR(out);
            raise_of_flow(self, status);
        }
        self->eof = out != NULL && action == VELK_FINISH;
    }
    PyThread_release_lock(self->lock);
    return out;
}

static PyObject *compressor_compress(PyObject *self, PyObject *arguments) {
    Py_buffer data;
    if (!PyArg_ParseTuple(arguments, "y*:compress", &data)) return NULL;
    PyObject *const out = compress_some((flow_object *)self, &data, VELK_RUN);
    PyBuffer_Release(&data);
    return out;
}

static PyObject *compressor_flush(PyObject *self, PyObject *Py_UNUSED(nothing)) {
    return compress_some((flow_object *)self, NULL, VELK_FINISH);
}

static PyObject *compressor_end_block(PyObject *self, PyObject *Py_UNUSED(nothing)) {
    return compress_some((flow_object *)self, NULL, VELK_FLUSH);
}

static PyMethodDef kCompressorMethods[] = {
    {"compress", compressor_compress, METH_VARARGS,
     "compress($self, data, /)\n--\n\nTake a bytes-like object; return what there is of the "
     "archive."},
    {"flush", compressor_flush, METH_NOARGS,
     "flush($self, /)\n--\n\nFinish; return the rest of the archive."},
    {"end_block", compressor_end_block, METH_NOARGS,
     "end_block($self, /)\n--\n\n"
     "End the block; return what is missing to restore all that was taken so far."},
    {NULL, NULL, 0, NULL}};

static PyType_Slot kCompressorSlots[] = {
    {Py_tp_new, new_compressor},
    {Py_tp_dealloc, free_flow},
    {Py_tp_methods, kCompressorMethods},
    {Py_tp_doc, "VelkCompressor(**settings)\n--\n\n"
                "Compresses one input as it comes, by threads; see velk's settings."},
    {0, NULL}};
static PyType_Spec kCompressorSpec = {"velk.VelkCompressor", sizeof(flow_object), 0,
                                      Py_TPFLAGS_DEFAULT, kCompressorSlots};

// members, threads: for files, which hold members in a row and are read ahead.
static PyObject *new_decompressor(PyTypeObject *type, PyObject *arguments, PyObject *named) {
    static char *names[] = {"members", "threads", NULL};
    velk_options options;
    velk_options_init(&options);
    int members = 0;
    unsigned threads = 1;
    if (!PyArg_ParseTupleAndKeywords(arguments, named, "|$pI:VelkDecompressor", names, &members,
                                     &threads))
        return NULL;
    options.threads = threads;
    options.one_member = !members;
    return make_flow(type, &options, 1, 0);
}

// Keeps what was not taken for the next call, or as unused at the end.
static int keep_input(flow_object *self, const velk_buffers *buffers) {
    const char *const rest = buffers->in;
    if (self->eof) {
        const void *before = NULL;
        const size_t size = velk_flow_unused(self->flow, &before);
        self->unused = PyBytes_FromStringAndSize(NULL, (Py_ssize_t)(size + buffers->in_size));
        if (self->unused != NULL && size != 0) memcpy(PyBytes_AsString(self->unused), before, size);
        if (self->unused != NULL && buffers->in_size != 0)
            memcpy(PyBytes_AsString(self->unused) + size, rest, buffers->in_size);
        Py_CLEAR(self->held);
        return self->unused != NULL;
    }
    if (self->held != NULL) {
        self->held_at = (size_t)(rest - PyBytes_AsString(self->held));
        if (buffers->in_size == 0) Py_CLEAR(self->held);
        return 1;
    }
    if (buffers->in_size == 0) return 1;
    self->held = PyBytes_FromStringAndSize(rest, (Py_ssize_t)buffers->in_size);
    self->held_at = 0;
    return self->held != NULL;
}

// Adds to what is held; what is to be taken stands in *buffers then.
static int add_input(flow_object *self, const Py_buffer *data, velk_buffers *buffers) {
    buffers->in = data->buf;
    buffers->in_size = (size_t)data->len;
    if (self->held == NULL) return 1;
    const size_t left = (size_t)PyBytes_Size(self->held) - self->held_at;
    if (data->len != 0) {
        PyObject *const joined =
            PyBytes_FromStringAndSize(NULL, (Py_ssize_t)(left + (size_t)data->len));
        if (joined == NULL) return 0;
        memcpy(PyBytes_AsString(joined), PyBytes_AsString(self->held) + self->held_at, left);
        memcpy(PyBytes_AsString(joined) + left, data->buf, (size_t)data->len);
        Py_DECREF(self->held);
        self->held = joined;
        self->held_at = 0;
    }
    buffers->in = PyBytes_AsString(self->held) + self->held_at;
    buffers->in_size = left + (size_t)data->len;
    return 1;
}

static PyObject *restore_some(PyObject *object, PyObject *arguments, PyObject *named,
                              velk_action action, const char *format) {
    static char *names[] = {"data", "max_length", NULL};
    flow_object *const self = (flow_object *)object;
    Py_buffer data = {0};
    Py_ssize_t most = -1;
    if (!PyArg_ParseTupleAndKeywords(arguments, named, format, names, &data, &most)) return NULL;
    PyObject *out = NULL;
    velk_buffers buffers;
    velk_status status;
    take(self->lock);
    if (self->eof) {
        PyErr_SetString(PyExc_EOFError, "the end of the archive has been reached");
    } else if (usable(self) && add_input(self, &data, &buffers)) {
        self->needs_input = 0;
        out = run_flow(self, &buffers, action, most, &status);
        self->eof = out != NULL && status == VELK_DONE;
        if (!keep_input(self, &buffers)) {
            self->broken = 1;
            Py_CLEAR(out);
        } else if (out != NULL && status != VELK_OK && status != VELK_DONE &&
                   (most < 0 || PyBytes_Size(out) == 0)) { // or else with the next call
            Py_CLEAR(out);
            raise_of_flow(self, status);
        }
        self->needs_input =
            out != NULL && status == VELK_OK && self->held == NULL && buffers.out_size != 0;
    }
    PyThread_release_lock(self->lock);
    PyBuffer_Release(&data);
    return out;
}

static PyObject *decompressor_decompress(PyObject *self, PyObject *arguments, PyObject *named) {
    return restore_some(self, arguments, named, VELK_RUN, "y*|n:decompress");
}

static PyObject *decompressor_finish(PyObject *self, PyObject *arguments, PyObject *named) {
    return restore_some(self, arguments, named, VELK_FINISH, "|y*n:finish");
}

static PyObject *decompressor_unused(PyObject *self, void *Py_UNUSED(context)) {
    PyObject *const unused = ((flow_object *)self)->unused;
    return unused != NULL ? Py_NewRef(unused) : PyBytes_FromStringAndSize(NULL, 0);
}

// Of nothing more than what has been restored.
static PyObject *decompressor_whole(PyObject *self, void *Py_UNUSED(context)) {
    flow_object *const flow = (flow_object *)self;
    velk_report report;
    take(flow->lock);
    velk_flow_report(flow->flow, &report);
    PyThread_release_lock(flow->lock);
    return PyBool_FromLong(report.whole);
}

static PyMethodDef kDecompressorMethods[] = {
    {"decompress", (PyCFunction)(void (*)(void))decompressor_decompress,
     METH_VARARGS | METH_KEYWORDS,
     "decompress($self, data, max_length=-1)\n--\n\n"
     "Take a bytes-like object; return what it restores to, at most max_length bytes."},
    {"finish", (PyCFunction)(void (*)(void))decompressor_finish, METH_VARARGS | METH_KEYWORDS,
     "finish($self, data=b'', max_length=-1)\n--\n\n"
     "As decompress, of the last bytes that there are: a plain archive has no other end."},
    {NULL, NULL, 0, NULL}};
static PyMemberDef kDecompressorMembers[] = {
    {"eof", T_BOOL, offsetof(flow_object, eof), READONLY, "The archive's end has been reached."},
    {"needs_input", T_BOOL, offsetof(flow_object, needs_input), READONLY,
     "More data must come before there is more output."},
    {NULL, 0, 0, 0, NULL}};
static PyGetSetDef kDecompressorGetters[] = {
    {"unused_data", decompressor_unused, NULL, "What followed the end of the archive.", NULL},
    {"whole", decompressor_whole, NULL,
     "At the end: nothing is missing. (Some plain archives can't tell.)", NULL},
    {NULL, NULL, NULL, NULL, NULL}};

static PyType_Slot kDecompressorSlots[] = {
    {Py_tp_new, new_decompressor},
    {Py_tp_dealloc, free_flow},
    {Py_tp_methods, kDecompressorMethods},
    {Py_tp_members, kDecompressorMembers},
    {Py_tp_getset, kDecompressorGetters},
    {Py_tp_doc, "VelkDecompressor()\n--\n\nRestores one archive, of those in a row the first, "
                "as its bytes come."},
    {0, NULL}};
static PyType_Spec kDecompressorSpec = {"velk.VelkDecompressor", sizeof(flow_object), 0,
                                        Py_TPFLAGS_DEFAULT, kDecompressorSlots};

// All at once, without a bound of what it may come to: memory follows the output.
static PyObject *compress_all(PyObject *module, PyObject *arguments, PyObject *settings) {
    velk_options options;
    Py_buffer data;
    if (!PyArg_ParseTuple(arguments, "y*:compress", &data)) return NULL;
    PyObject *out = NULL, *flow = NULL;
    if (get_options(settings, &options, NULL, NULL)) {
        module_state *const state = PyModule_GetState(module);
        flow = make_flow(state->compressor, &options, 0, (uint64_t)data.len);
    }
    if (flow != NULL) out = compress_some((flow_object *)flow, &data, VELK_FINISH);
    Py_XDECREF(flow);
    PyBuffer_Release(&data);
    return out;
}

// Readers -------------------------------------------------------------------------

typedef struct {
    PyObject_HEAD PyThread_type_lock lock;
    velk_reader *reader;
    PyObject *file;        // of the archive,
    uint64_t base;         // whose header is here
    PyThreadState *thread; // of the call
    velk_report report;
} reader_object;

static int64_t read_archive(void *user, uint64_t offset, void *buffer, size_t size) {
    reader_object *const self = user;
    int64_t got = -1;
    PyEval_RestoreThread(self->thread);
    PyObject *const moved = PyErr_Occurred()
                                ? NULL
                                : PyObject_CallMethod(self->file, "seek", "K",
                                                      (unsigned long long)(self->base + offset));
    PyObject *const bytes =
        moved != NULL ? PyObject_CallMethod(self->file, "read", "n", (Py_ssize_t)size) : NULL;
    Py_buffer data;
    if (bytes == Py_None) {
        PyErr_SetString(PyExc_BlockingIOError, "the archive's file would block");
    } else if (bytes != NULL && PyObject_GetBuffer(bytes, &data, PyBUF_SIMPLE) == 0) {
        got = data.len;
        if ((size_t)data.len <= size) memcpy(buffer, data.buf, (size_t)data.len);
        PyBuffer_Release(&data);
    }
    Py_XDECREF(moved);
    Py_XDECREF(bytes);
    self->thread = PyEval_SaveThread();
    return got;
}

static int traverse_reader(PyObject *object, visitproc visit, void *arg) {
    Py_VISIT(Py_TYPE(object));
    Py_VISIT(((reader_object *)object)->file);
    return 0;
}

static int clear_reader(PyObject *object) {
    Py_CLEAR(((reader_object *)object)->file);
    return 0;
}

static void free_reader(PyObject *object) {
    PyObject_GC_UnTrack(object);
    velk_reader_close(((reader_object *)object)->reader);
    clear_reader(object);
    free_object(object);
}

static PyObject *new_reader(PyTypeObject *type, PyObject *arguments, PyObject *named) {
    PyObject *file;
    unsigned long long base, size;
    if (named != NULL && PyDict_Size(named) != 0)
        return PyErr_Format(PyExc_TypeError, "Reader takes no names");
    if (!PyArg_ParseTuple(arguments, "OKK:Reader", &file, &base, &size)) return NULL;
    reader_object *const self = new_object(type);
    if (self == NULL) return NULL;
    self->file = Py_NewRef(file);
    self->base = base;
    self->thread = PyEval_SaveThread();
    const velk_status status =
        velk_reader_open(&self->reader, NULL, read_archive, self, size, &self->report);
    PyEval_RestoreThread(self->thread);
    if (status == VELK_OK) return (PyObject *)self;
    raise_status(PyType_GetModuleState(type), status, &self->report);
    Py_DECREF(self);
    return NULL;
}

static PyObject *reader_read(PyObject *object, PyObject *arguments) {
    reader_object *const self = (reader_object *)object;
    unsigned long long offset;
    Py_ssize_t size;
    if (!PyArg_ParseTuple(arguments, "Kn:read", &offset, &size)) return NULL;
    const uint64_t left = offset < self->report.size ? self->report.size - offset : 0;
    if (size < 0 || (uint64_t)size > left) size = (Py_ssize_t)left;
    char *const out = PyMem_Malloc((size_t)size);
    if (out == NULL) return PyErr_NoMemory();
    size_t got;
    take(self->lock);
    self->thread = PyEval_SaveThread();
    const velk_status status = velk_reader_read(self->reader, offset, out, (size_t)size, &got);
    PyEval_RestoreThread(self->thread);
    PyObject *const result = status == VELK_OK
                                 ? PyBytes_FromStringAndSize(out, (Py_ssize_t)got)
                                 : raise_status(state_of(object), status, &self->report);
    PyThread_release_lock(self->lock);
    PyMem_Free(out);
    return result;
}

static PyObject *reader_block(PyObject *object, PyObject *arguments) {
    unsigned long long number;
    velk_block b;
    if (!PyArg_ParseTuple(arguments, "K:block", &number)) return NULL;
    const velk_status status = velk_reader_block(((reader_object *)object)->reader, number, &b);
    if (status != VELK_OK) return raise_status(state_of(object), status, NULL);
    return Py_BuildValue("(KKKIIIO)", (unsigned long long)b.offset, (unsigned long long)b.start,
                         (unsigned long long)b.header, b.record_size, b.size, b.crc,
                         b.indexed ? Py_True : Py_False);
}

static PyMethodDef kReaderMethods[] = {{"read", reader_read, METH_VARARGS, NULL},
                                       {"block", reader_block, METH_VARARGS, NULL},
                                       {NULL, NULL, 0, NULL}};
static PyMemberDef kReaderMembers[] = {
    {"size", T_ULONGLONG, offsetof(reader_object, report.size), READONLY, NULL},
    {"blocks", T_ULONGLONG, offsetof(reader_object, report.blocks), READONLY, NULL},
    {"whole", T_BOOL, offsetof(reader_object, report.whole), READONLY, NULL},
    {NULL, 0, 0, 0, NULL}};
static PyType_Slot kReaderSlots[] = {{Py_tp_new, new_reader},
                                     {Py_tp_dealloc, free_reader},
                                     {Py_tp_traverse, traverse_reader},
                                     {Py_tp_clear, clear_reader},
                                     {Py_tp_methods, kReaderMethods},
                                     {Py_tp_members, kReaderMembers},
                                     {0, NULL}};
static PyType_Spec kReaderSpec = {"velk._velk.Reader", sizeof(reader_object), 0,
                                  Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, kReaderSlots};

// Single blocks -------------------------------------------------------------------

typedef struct {
    PyObject_HEAD PyThread_type_lock lock;
    velk_encoder *encoder;
    velk_decoder *decoder;
    unsigned block_size;
    size_t capacity; // of what a block is coded to
    PyObject *header;
} coder_object;

static void free_coder(PyObject *object) {
    coder_object *const self = (coder_object *)object;
    velk_encoder_free(self->encoder);
    velk_decoder_free(self->decoder);
    Py_CLEAR(self->header);
    free_object(object);
}

static PyObject *new_encoder(PyTypeObject *type, PyObject *arguments, PyObject *settings) {
    PyObject *given = NULL;
    velk_options options;
    if (!PyArg_ParseTuple(arguments, "|O:Encoder", &given) ||
        !get_options(settings, &options, "size", &given))
        return NULL;
    uint64_t size = VELK_SIZE_UNKNOWN;
    if (given != NULL && given != Py_None) {
        size = PyLong_AsUnsignedLongLong(given);
        if (size == VELK_SIZE_UNKNOWN) {
            if (PyErr_ExceptionMatches(PyExc_TypeError)) return NULL;
            return PyErr_Format(PyExc_ValueError, "size is out of its bounds: %R", given);
        }
    }
    coder_object *const self = new_object(type);
    if (self == NULL) return NULL;
    velk_status status = velk_encoder_new(&self->encoder, &options, size);
    self->block_size = velk_block_size(&options, size);
    self->capacity = velk_compress_bound(self->block_size, &options) - VELK_HEADER_SIZE;
    self->header = PyBytes_FromStringAndSize(NULL, VELK_HEADER_SIZE);
    if (status == VELK_OK && self->header != NULL) {
        status = velk_write_header(&options, size, PyBytes_AsString(self->header));
        if (status == VELK_OK) return (PyObject *)self;
    }
    if (status != VELK_OK) raise_status(PyType_GetModuleState(type), status, NULL);
    Py_DECREF(self);
    return NULL;
}

static PyObject *new_decoder(PyTypeObject *type, PyObject *arguments, PyObject *named) {
    static char *names[] = {"header", NULL};
    Py_buffer header;
    if (!PyArg_ParseTupleAndKeywords(arguments, named, "y*:Decoder", names, &header)) return NULL;
    uint64_t bound;
    velk_options options;
    coder_object *self = new_object(type);
    velk_status status = header.len < VELK_HEADER_SIZE // then this fails, and says why
                             ? velk_decompress_bound(header.buf, (size_t)header.len, &bound)
                             : velk_read_header(header.buf, &options);
    if (self != NULL && status == VELK_OK)
        status = velk_decoder_new(&self->decoder, &options, header.buf);
    PyBuffer_Release(&header);
    if (self == NULL) return NULL;
    if (status == VELK_OK) {
        self->block_size = options.block_size;
        self->capacity = options.block_size + 100;
        return (PyObject *)self;
    }
    raise_status(PyType_GetModuleState(type), status, NULL);
    Py_DECREF(self);
    return NULL;
}

// What the block or record is coded to; entry: null for a decoder.
static PyObject *code(PyObject *object, const Py_buffer *data, void *entry) {
    coder_object *const self = (coder_object *)object;
    char *const out = PyMem_Malloc(self->capacity);
    if (out == NULL) return PyErr_NoMemory();
    const size_t size = (size_t)data->len;
    size_t coded;
    velk_status status;
    take(self->lock);
    Py_BEGIN_ALLOW_THREADS status =
        entry != NULL
            ? velk_encode_block(self->encoder, data->buf, size, out, self->capacity, &coded, entry)
            : velk_decode_block(self->decoder, data->buf, size, out, self->capacity, &coded);
    Py_END_ALLOW_THREADS PyThread_release_lock(self->lock);
    PyObject *const result = status == VELK_OK ? PyBytes_FromStringAndSize(out, (Py_ssize_t)coded)
                                               : raise_status(state_of(object), status, NULL);
    PyMem_Free(out);
    return result;
}

static PyObject *encoder_encode(PyObject *self, PyObject *arguments) {
    Py_buffer block;
    if (!PyArg_ParseTuple(arguments, "y*:encode", &block)) return NULL;
    char entry[VELK_ENTRY_SIZE];
    PyObject *const record = code(self, &block, entry);
    PyBuffer_Release(&block);
    return record == NULL ? NULL : Py_BuildValue("(Ny#)", record, entry, (Py_ssize_t)sizeof entry);
}

static PyObject *decoder_decode(PyObject *self, PyObject *arguments) {
    Py_buffer record;
    if (!PyArg_ParseTuple(arguments, "y*:decode", &record)) return NULL;
    PyObject *const block = code(self, &record, NULL);
    PyBuffer_Release(&record);
    return block;
}

static PyMethodDef kEncoderMethods[] = {
    {"encode", encoder_encode, METH_VARARGS,
     "encode($self, block, /)\n--\n\n"
     "Return the record of a block of 1 to block_size bytes, and its entry for the index."},
    {NULL, NULL, 0, NULL}};
static PyMemberDef kEncoderMembers[] = {
    {"header", T_OBJECT, offsetof(coder_object, header), READONLY, "What the archive begins with."},
    {"block_size", T_UINT, offsetof(coder_object, block_size), READONLY,
     "The most bytes of a block."},
    {NULL, 0, 0, 0, NULL}};
static PyType_Slot kEncoderSlots[] = {
    {Py_tp_new, new_encoder},
    {Py_tp_dealloc, free_coder},
    {Py_tp_methods, kEncoderMethods},
    {Py_tp_members, kEncoderMembers},
    {Py_tp_doc,
     "Encoder(size=None, **settings)\n--\n\n"
     "Compresses blocks of one input to the records of its archive, in any order.\n\n"
     "An archive is `header`, the records in the order of their blocks and, unless it is plain,\n"
     "what make_index gives. Each block but the last of a plain archive holds `block_size` bytes\n"
     "of the input, others at most. `size` is that of the whole input, in bytes, or None for one\n"
     "that is not known yet and is more than a block.\n\n"
     "Encoders of the same size and settings do the same, whatever the process or machine."},
    {0, NULL}};
static PyType_Spec kEncoderSpec = {"velk.Encoder", sizeof(coder_object), 0, Py_TPFLAGS_DEFAULT,
                                   kEncoderSlots};

static PyMethodDef kDecoderMethods[] = {
    {"decode", decoder_decode, METH_VARARGS,
     "decode($self, record, /)\n--\n\nReturn the block of a record."},
    {NULL, NULL, 0, NULL}};
static PyType_Slot kDecoderSlots[] = {
    {Py_tp_new, new_decoder},
    {Py_tp_dealloc, free_coder},
    {Py_tp_methods, kDecoderMethods},
    {Py_tp_doc,
     "Decoder(header)\n--\n\n"
     "Restores blocks from the records of an archive, in any order.\n\n"
     "`header` is the HEADER_SIZE bytes that the archive, or the member of it, begins with."},
    {0, NULL}};
static PyType_Spec kDecoderSpec = {"velk.Decoder", sizeof(coder_object), 0, Py_TPFLAGS_DEFAULT,
                                   kDecoderSlots};

static PyObject *make_index(PyObject *module, PyObject *arguments) {
    Py_buffer header, entries;
    if (!PyArg_ParseTuple(arguments, "y*y*:make_index", &header, &entries)) return NULL;
    const size_t capacity = (size_t)entries.len + 29; // end mark and footer
    char *const out = PyMem_Malloc(capacity);
    size_t size = 0;
    velk_status status = out != NULL ? VELK_ERROR_ARGUMENT : VELK_ERROR_MEMORY;
    if (out != NULL && header.len == VELK_HEADER_SIZE && entries.len % VELK_ENTRY_SIZE == 0)
        status = velk_write_index(header.buf, entries.buf, (size_t)entries.len / VELK_ENTRY_SIZE,
                                  out, capacity, &size);
    PyBuffer_Release(&header);
    PyBuffer_Release(&entries);
    PyObject *const result = status == VELK_OK
                                 ? PyBytes_FromStringAndSize(out, (Py_ssize_t)size)
                                 : raise_status(PyModule_GetState(module), status, NULL);
    PyMem_Free(out);
    return result;
}

// The module ----------------------------------------------------------------------

static PyMethodDef kFunctions[] = {
    {"compress", (PyCFunction)(void (*)(void))compress_all, METH_VARARGS | METH_KEYWORDS,
     "compress($module, data, /, **settings)\n--\n\n"
     "Return the archive of a bytes-like object; if `plain`, the bytes that `VELK e` writes."},
    {"make_index", make_index, METH_VARARGS,
     "make_index($module, header, entries, /)\n--\n\n"
     "Return what ends the archive with this header, of all entries of its blocks in a row."},
    {NULL, NULL, 0, NULL}};

static PyObject *add_error(PyObject *module, const char *name, const char *doc, PyObject *bases) {
    PyObject *const places = Py_BuildValue("{sOsO}", "block", Py_None, "offset", Py_None);
    PyObject *const error = bases != NULL && places != NULL
                                ? PyErr_NewExceptionWithDoc(name, doc, bases, places)
                                : NULL;
    Py_XDECREF(places);
    if (error != NULL && PyModule_AddObjectRef(module, name + sizeof "velk", error) < 0)
        return NULL;
    return error;
}

static PyTypeObject *add_type(PyObject *module, PyType_Spec *spec) {
    PyTypeObject *const type = (PyTypeObject *)PyType_FromModuleAndSpec(module, spec, NULL);
    return type != NULL && PyModule_AddType(module, type) == 0 ? type : NULL;
}

static int fill_module(PyObject *module) {
    module_state *const state = PyModule_GetState(module);
    state->error = add_error(module, "velk.VelkError",
                             "What is not an archive, or a damaged one: `block`, counted from 0, "
                             "and `offset` tell where, or are None.",
                             PyExc_OSError);
    if (state->error == NULL) return -1;
    PyObject *const bases = PyTuple_Pack(3, state->error, PyExc_EOFError, PyExc_ValueError);
    state->cut_error =
        add_error(module, "velk.CutError", "An archive whose end is missing.", bases);
    Py_XDECREF(bases);
    if (state->cut_error == NULL ||
        (state->compressor = add_type(module, &kCompressorSpec)) == NULL ||
        (state->decompressor = add_type(module, &kDecompressorSpec)) == NULL)
        return -1;
    PyType_Spec *const others[] = {&kReaderSpec, &kEncoderSpec, &kDecoderSpec};
    for (size_t i = 0; i < 3; ++i) {
        PyTypeObject *const type = add_type(module, others[i]);
        if (type == NULL) return -1;
        Py_DECREF(type);
    }
    static const struct {
        const char *name;
        long value;
    } kNumbers[] = {{"OFF_EOL", VELK_OFF_EOL},         {"OFF_FLT32", VELK_OFF_FLT32},
                    {"OFF_DELTA", VELK_OFF_DELTA},     {"OFF_LZP", VELK_OFF_LZP},
                    {"OFF_BWT", VELK_OFF_BWT},         {"OFF_ST", VELK_OFF_ST},
                    {"OFF_RLE", VELK_OFF_RLE},         {"OFF_DCE", VELK_OFF_DCE},
                    {"HEADER_SIZE", VELK_HEADER_SIZE}, {"ENTRY_SIZE", VELK_ENTRY_SIZE}};
    for (size_t i = 0; i < sizeof kNumbers / sizeof *kNumbers; ++i) {
        if (PyModule_AddIntConstant(module, kNumbers[i].name, kNumbers[i].value) < 0) return -1;
    }
    return PyModule_AddStringConstant(module, "__version__", velk_version());
}

static int traverse_module(PyObject *module, visitproc visit, void *arg) {
    const module_state *const state = PyModule_GetState(module);
    Py_VISIT(state->error);
    Py_VISIT(state->cut_error);
    Py_VISIT(state->compressor);
    Py_VISIT(state->decompressor);
    return 0;
}

static int clear_module(PyObject *module) {
    module_state *const state = PyModule_GetState(module);
    Py_CLEAR(state->error);
    Py_CLEAR(state->cut_error);
    Py_CLEAR(state->compressor);
    Py_CLEAR(state->decompressor);
    return 0;
}

static void free_module(void *module) {
    clear_module(module);
}

static PyModuleDef_Slot kModuleSlots[] = {{Py_mod_exec, fill_module}, {0, NULL}};
static PyModuleDef kModule = {PyModuleDef_HEAD_INIT, "_velk",      NULL,
                              sizeof(module_state),  kFunctions,   kModuleSlots,
                              traverse_module,       clear_module, free_module};

PyMODINIT_FUNC PyInit__velk(void) {
    return PyModuleDef_Init(&kModule);
}
