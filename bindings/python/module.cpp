// SPDX-License-Identifier: BSD-3-Clause
//
// orvanite._native: the keyer's C interface for Python. Arrays are described where they lie; names,
// defaults and hints are orvanite/__init__.py's.
// The interpreter's lock is let go while a keyer works; a lock of each keyer's own keeps threads of
// Python apart that share one.
#include <orvanite/keyer.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <mutex>
#include <new>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

PyObject* wrongUse = nullptr;
PyObject* failure = nullptr;

[[noreturn]] void raise(PyObject* type, const std::string& words) {
  PyErr_SetString(type, words.c_str());
  throw py::error_already_set();
}

OrvaniteDepth depthOf(const py::array& array, const std::string& role) {
  const py::dtype type = array.dtype();
  const char order = type.byteorder();
  if (order == '=' || order == '|') {
    if (type.kind() == 'u' && type.itemsize() == 1) return ORVANITE_8BIT;
    if (type.kind() == 'u' && type.itemsize() == 2) return ORVANITE_16BIT;
    if (type.kind() == 'f' && type.itemsize() == 2) return ORVANITE_HALF;
    if (type.kind() == 'f' && type.itemsize() == 4) return ORVANITE_FLOAT;
  }
  raise(PyExc_TypeError, role + ": expected an array of uint8, uint16, float16 or float32, found " +
                             std::string(py::str(static_cast<const py::object&>(type))));
}

// An array as the interface sees it. None is an absent picture; (height, width) is a matte.
OrvaniteImage imageOf(const py::object& object, const std::string& role, bool written = false) {
  OrvaniteImage image{};
  if (object.is_none()) return image;
  if (!py::isinstance<py::array>(object)) {
    raise(PyExc_TypeError, role + ": expected a numpy array, found " +
                               std::string(py::str(py::type::handle_of(object).attr("__name__"))));
  }
  auto array = py::reinterpret_borrow<py::array>(object);
  const auto channels = array.ndim() == 3 ? array.shape(2) : 1;
  if (array.ndim() < 2 || array.ndim() > 3 || channels < 1 || channels == 2 || channels > 4) {
    raise(wrongUse, role +
                        ": expected an array of (height, width, 3 or 4), or (height, width) for a "
                        "matte, found " +
                        std::string(py::str(array.attr("shape"))));
  }
  constexpr py::ssize_t longest = 1 << 24;
  if (array.shape(0) > longest || array.shape(1) > longest) {
    raise(wrongUse, role + ": expected no more than 16777216 pixels a side");
  }
  if (written && !array.writeable())
    raise(wrongUse, role + ": expected an array that can be written");
  image.depth = depthOf(array, role);
  image.height = static_cast<int>(array.shape(0));
  image.width = static_cast<int>(array.shape(1));
  image.rowStride = array.strides(0);
  image.pixelStride = array.strides(1);
  auto* first = static_cast<char*>(const_cast<void*>(array.data()));
  if (image.width < 1 || image.height < 1)
    raise(wrongUse, role + ": expected a picture with pixels");
  for (py::ssize_t c = 0; c < channels; ++c) {
    const py::ssize_t step = array.ndim() == 3 ? array.strides(2) * c : 0;
    image.channels[channels == 1 ? 3 : c] = first + step;
  }
  return image;
}

class Keyer {
 public:
  Keyer() : keyer_(orvanite_keyerNew()) {
    if (!keyer_) throw std::bad_alloc();
  }
  ~Keyer() { orvanite_keyerDelete(keyer_); }
  Keyer(const Keyer&) = delete;
  Keyer& operator=(const Keyer&) = delete;

  void setText(const std::string& name, const std::string& text) {
    call([&] { return orvanite_keyerSetText(keyer_, name.c_str(), text.c_str()); });
  }
  void setNumbers(const std::string& name, const std::vector<double>& values) {
    call([&] {
      return orvanite_keyerSetNumbers(keyer_, name.c_str(), values.data(),
                                      static_cast<int>(values.size()));
    });
  }
  std::string text(const std::string& name) {
    return said([&] { return orvanite_keyerText(keyer_, name.c_str()); });
  }
  std::vector<double> numbers(const std::string& name) {
    std::vector<double> values(3);
    call([&] { return orvanite_keyerNumbers(keyer_, name.c_str(), values.data()); });
    return values;
  }
  bool given(const std::string& name) {
    bool is = false;
    call([&] {
      is = orvanite_keyerGiven(keyer_, name.c_str()) != 0;
      return ORVANITE_OK;
    });
    return is;
  }
  void reset(const py::object& name) {
    const std::string text = name.is_none() ? "" : std::string(py::str(name));
    const bool all = name.is_none();
    call([&] { return orvanite_keyerReset(keyer_, all ? nullptr : text.c_str()); });
  }
  std::string preset() {
    return said([&] { return orvanite_keyerPreset(keyer_); });
  }
  void usePreset(const std::string& text) {
    call([&] { return orvanite_keyerUsePreset(keyer_, text.c_str()); });
  }
  py::tuple findScreen(const py::object& plate) {
    const OrvaniteImage image = imageOf(plate, "plate");
    constexpr const char* channels[] = {"red", "green", "blue"};
    OrvaniteScreen screen{};
    call([&] { return orvanite_keyerFindScreen(keyer_, &image, &screen); });
    return py::make_tuple(channels[screen.primary],
                          py::make_tuple(screen.colour[0], screen.colour[1], screen.colour[2]),
                          screen.coverage, screen.evenness);
  }
  py::tuple find(const py::object& plate, int cleanPlate) {
    const OrvaniteImage image = imageOf(plate, "plate");
    std::string names;
    bool estimated = false;
    call([&] {
      const OrvaniteResult result =
          orvanite_keyerFind(keyer_, &image, static_cast<OrvaniteCleanPlate>(cleanPlate));
      if (result != ORVANITE_OK) return result;
      names = orvanite_keyerFound(keyer_);
      estimated = orvanite_keyerHasCleanPlate(keyer_) != 0;
      return result;
    });
    return py::make_tuple(names, estimated);
  }
  bool see(const py::object& plate) {
    const OrvaniteImage image = imageOf(plate, "plate");
    int steady = 0;
    call([&] { return orvanite_keyerSee(keyer_, &image, &steady); });
    return steady != 0;
  }
  void render(const py::object& plate, const py::object& background, const py::object& holdOut,
              const py::object& garbage, const py::object& cleanPlate, const py::object& out,
              int threads) {
    OrvaniteFrame frame{};
    frame.plate = imageOf(plate, "plate");
    frame.background = imageOf(background, "background");
    frame.holdOut = imageOf(holdOut, "hold_out");
    frame.garbage = imageOf(garbage, "garbage");
    frame.cleanPlate = imageOf(cleanPlate, "clean_plate");
    frame.result = imageOf(out, "out", true);
    call([&] { return orvanite_keyerRender(keyer_, &frame, threads); });
  }

 private:
  template <class Call>
  void call(Call work) {
    OrvaniteResult result = ORVANITE_OK;
    std::string words;
    {
      const py::gil_scoped_release others;
      const std::lock_guard alone(lock_);
      result = work();
      if (result != ORVANITE_OK) words = orvanite_keyerError(keyer_);
    }
    if (result == ORVANITE_NO_MEMORY) throw std::bad_alloc();
    if (result != ORVANITE_OK) raise(result == ORVANITE_WRONG_USE ? wrongUse : failure, words);
  }
  // A text of the keyer's, copied before another call may change it.
  template <class Say>
  std::string said(Say say) {
    std::string text;
    call([&] {
      const char* const words = say();
      if (words) text = words;
      return words ? ORVANITE_OK : ORVANITE_WRONG_USE;
    });
    return text;
  }

  OrvaniteKeyer* keyer_;
  std::mutex lock_;
};

py::list table() {
  const char* const types[] = {"number", "triple", "colour", "choice", "toggle", "channel"};
  py::list rows;
  for (int i = 0; i < orvanite_keyerParameters(); ++i) {
    OrvaniteParameter p;
    orvanite_keyerParameter(i, &p);
    py::list choices;
    for (int c = 0; c < p.choices; ++c) {
      OrvaniteChoice choice;
      orvanite_keyerChoice(i, c, &choice);
      choices.append(py::make_tuple(choice.text, choice.label, choice.help));
    }
    py::dict row;
    row["name"] = p.name;
    row["label"] = p.label;
    row["group"] = p.group;
    row["help"] = p.help;
    row["unit"] = p.unit;
    row["type"] = types[p.type];
    row["low"] = p.low;
    row["high"] = p.high;
    row["default"] = py::make_tuple(p.defaults[0], p.defaults[1], p.defaults[2]);
    row["choices"] = choices;
    rows.append(row);
  }
  return rows;
}

PyObject* exceptionOf(py::module_& module, const char* name, PyObject* base, const char* about) {
  const std::string full = std::string("orvanite.") + name;
  PyObject* const type = PyErr_NewExceptionWithDoc(full.c_str(), about, base, nullptr);
  if (!type) throw py::error_already_set();
  module.attr(name) = py::reinterpret_borrow<py::object>(type);
  return type;
}

}  // namespace

PYBIND11_MODULE(_native, module) {
  wrongUse = exceptionOf(module, "WrongUse", PyExc_ValueError,
                         "A parameter, picture or value that cannot be.");
  failure = exceptionOf(module, "Failure", PyExc_RuntimeError,
                        "The pictures or the machine got in the way: no screen, for instance.");
  module.attr("version") = orvanite_keyerVersion();
  module.def("table", &table);
  py::class_<Keyer>(module, "Keyer")
      .def(py::init<>())
      .def("set_text", &Keyer::setText)
      .def("set_numbers", &Keyer::setNumbers)
      .def("text", &Keyer::text)
      .def("numbers", &Keyer::numbers)
      .def("given", &Keyer::given)
      .def("reset", &Keyer::reset)
      .def("preset", &Keyer::preset)
      .def("use_preset", &Keyer::usePreset)
      .def("find_screen", &Keyer::findScreen)
      .def("find", &Keyer::find)
      .def("see", &Keyer::see)
      .def("render", &Keyer::render);
}
