/* The calls of pvzan.py that ctypes is too slow for: whole texts, to and from str and bytes.
 *
 * It is not linked with the library: pvzan.py loads that, and hands over addresses. All that is
 * rare, a fault for one, is left to pvzan.py. */
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include "pvzan_text.h"

typedef size_t convert_function(pvzan_converter*, const uint8_t*, size_t, uint8_t*, size_t,
                                pvzan_outcome*);

enum {
    worth_a_switch = 16384, /* shorter texts are done before another thread has taken over */
    spare = 16,             /* the library is faster where the room is not exact */
    few_units = 256,
    block = 64
};

/* What a function made here holds: what it does; the address of pvzan_convert; what it calls with
 * the same arguments when the text has a fault or no converter is idle; a list of converters, None
 * where one is at work, and for an encoder those from UTF-8. */
enum { held_task, held_address, held_slow_way, held_converters, held_from_utf8 };
enum { task_convert, task_decode, task_encode };

/* A converter at work, and what it said. */
typedef struct call {
    convert_function* function;
    pvzan_converter* converter;
    PyObject *converters, *address;
    Py_ssize_t place;
    pvzan_outcome said;
} call;

static int begin(call* c, PyObject* held, int which) {
    c->converters = PyTuple_GET_ITEM(held, which);
    for (c->place = 0; c->place < PyList_GET_SIZE(c->converters); ++c->place) {
        c->address = PyList_GET_ITEM(c->converters, c->place);
        if (c->address != Py_None) {
            PyList_SET_ITEM(c->converters, c->place, Py_NewRef(Py_None));
            c->function = (convert_function*)PyLong_AsSize_t(PyTuple_GET_ITEM(held, held_address));
            c->converter = PyLong_AsVoidPtr(c->address);
            return 1;
        }
    }
    return 0;
}

static void end(call* c) {
    Py_DECREF(Py_None);
    PyList_SET_ITEM(c->converters, c->place, c->address);
}

/* Returns the size of the result. */
static size_t run(call* c, const void* in, Py_ssize_t size, void* out, size_t room) {
    PyThreadState* const others = size >= worth_a_switch ? PyEval_SaveThread() : NULL;
    const size_t result = c->function(c->converter, in, (size_t)size, out, room, &c->said);
    if (others != NULL) {
        PyEval_RestoreThread(others);
    }
    return result;
}

/* The loop over a block has no way out, so that the compiler makes few steps of it. */
static int has_surrogates(const Py_UCS2* units, Py_ssize_t count) {
    int found = 0;
    for (; count >= block && !found; units += block, count -= block) {
        for (int i = 0; i < block; ++i) {
            found |= (units[i] & 0xF800) == 0xD800;
        }
    }
    for (; count > 0 && !found; ++units, --count) {
        found = (*units & 0xF800) == 0xD800;
    }
    return found;
}

static PyObject* str_of(const Py_UCS2* units, Py_ssize_t count) {
    int order = PY_LITTLE_ENDIAN ? -1 : 1;
    return has_surrogates(units, count)
               ? PyUnicode_DecodeUTF16((const char*)units, 2 * count, NULL, &order)
               : PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, units, count);
}

/* The result, as bytes or as the str that it is in UTF-16; null with an exception, or None. */
static PyObject* result_of(PyObject* held, int which, const void* in, Py_ssize_t size, int is_str) {
    Py_UCS2 few[few_units];
    PyObject *bytes = NULL, *result = NULL;
    void* out = few;
    /* Enough for nearly every text; where it is not, the library says how much is. */
    size_t room = (size_t)size + (size_t)size / (is_str ? 1 : 2) + spare, written = 0;
    call c;

    if (!begin(&c, held, which)) {
        Py_RETURN_NONE;
    }
    for (c.said = PVZAN_FEED_MORE_ROOM; c.said == PVZAN_FEED_MORE_ROOM; room = written + spare) {
        Py_CLEAR(bytes);
        if (room > sizeof few) {
            bytes = room < (size_t)PY_SSIZE_T_MAX / 2
                        ? PyBytes_FromStringAndSize(NULL, (Py_ssize_t)room)
                        : PyErr_NoMemory();
            if (bytes == NULL) {
                break;
            }
            out = PyBytes_AS_STRING(bytes);
        }
        written = run(&c, in, size, out, bytes != NULL ? room : sizeof few);
    }
    if (c.said == PVZAN_FEED_DONE && bytes != NULL && !is_str) {
        _PyBytes_Resize(&bytes, (Py_ssize_t)written);
        result = Py_XNewRef(bytes);
    } else if (c.said == PVZAN_FEED_DONE) {
        result = is_str ? str_of(out, (Py_ssize_t)written / 2)
                        : PyBytes_FromStringAndSize(out, (Py_ssize_t)written);
    } else if (c.said != PVZAN_FEED_MORE_ROOM) {
        result = Py_NewRef(Py_None);
    }
    Py_XDECREF(bytes);
    end(&c);
    return result;
}

/* What a codec gives back: the result, and how much was taken. */
static PyObject* with_size(PyObject* result, Py_ssize_t size) {
    PyObject *pair, *number;
    if (result == NULL || result == Py_None) {
        return result;
    }
    number = PyLong_FromSsize_t(size);
    pair = number != NULL ? PyTuple_Pack(2, result, number) : NULL;
    Py_XDECREF(number);
    Py_DECREF(result);
    return pair;
}

static PyObject* read_bytes(PyObject* held, PyObject* text, int decodes) {
    PyObject* result;
    Py_buffer bytes;
    if (PyObject_GetBuffer(text, &bytes, PyBUF_SIMPLE) < 0) {
        return NULL;
    }
    result = result_of(held, held_converters, bytes.buf, bytes.len, decodes);
    result = decodes ? with_size(result, bytes.len) : result;
    PyBuffer_Release(&bytes);
    return result;
}

static PyObject* encode(PyObject* held, PyObject* text) {
    const Py_ssize_t count = PyUnicode_GET_LENGTH(text);
    PyObject *result, *utf8;
    if (PyUnicode_KIND(text) == PyUnicode_2BYTE_KIND) {
        const Py_UCS2* const units = PyUnicode_2BYTE_DATA(text);
        return has_surrogates(units, count) ? Py_NewRef(Py_None)
                                            : result_of(held, held_converters, units, 2 * count, 0);
    }
    if (PyUnicode_IS_ASCII(text)) {
        return result_of(held, held_from_utf8, PyUnicode_DATA(text), count, 0);
    }
    utf8 = PyUnicode_AsUTF8String(text);
    if (utf8 == NULL) {
        PyErr_Clear(); /* surrogates */
        Py_RETURN_NONE;
    }
    result = result_of(held, held_from_utf8, PyBytes_AS_STRING(utf8), PyBytes_GET_SIZE(utf8), 0);
    Py_DECREF(utf8);
    return result;
}

static PyObject* call_function(PyObject* held, PyObject* const* arguments, Py_ssize_t count,
                               PyObject* names) {
    const long task = PyLong_AsLong(PyTuple_GET_ITEM(held, held_task));
    PyObject* const text = count > 0 && names == NULL ? arguments[0] : NULL;
    PyObject* result;
    if (text != NULL && task != task_encode) {
        result = read_bytes(held, text, task == task_decode);
    } else if (text != NULL && PyUnicode_Check(text) && PyUnicode_IS_READY(text)) {
        result = with_size(encode(held, text), PyUnicode_GET_LENGTH(text));
    } else {
        result = Py_NewRef(Py_None);
    }
    if (result == Py_None) {
        Py_DECREF(result);
        result = PyObject_Vectorcall(PyTuple_GET_ITEM(held, held_slow_way), arguments,
                                     (size_t)count, names);
    }
    return result;
}

static PyMethodDef function = {"function", (PyCFunction)(void (*)(void))call_function,
                               METH_FASTCALL | METH_KEYWORDS, NULL};

static PyObject* make_function(PyObject* module, PyObject* held) {
    (void)module;
    return PyCFunction_New(&function, held);
}

static PyMethodDef functions[] = {
    {"function", make_function, METH_VARARGS, "A function of what it shall hold."},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef module = {PyModuleDef_HEAD_INIT, .m_name = "_pvzan",
                                    .m_methods = functions};

PyMODINIT_FUNC PyInit__pvzan(void) {
    return PyModuleDef_Init(&module);
}
