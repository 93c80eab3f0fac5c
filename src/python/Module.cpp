// _velk: the compiled part of the Python package `velk`. It stays thin: the device and its calls
// (NativeDevice.h), the import, the column list, and the library's errors turned into the
// package's exceptions (velk/_errors.py). The GIL is released while the library works; Ctrl-C
// stops a long table or import between two of its parts. Dates cross as Unix seconds and
// documents as JSON text; the Pythonic surface is velk/*.py.
#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "NativeDevice.h"
#include "velk/DayTable.h"
#include "velk/ExportImport.h"
#include "velk/SourceIdentifierRule.h"

namespace py = pybind11;

namespace velk::python {
namespace {

// A Python error raised inside a callback of the library (the user's progress function, or
// KeyboardInterrupt), kept until the library has returned and then raised in the caller.
class PendingPythonError {
 public:
  // Runs `call` with the GIL; false once it or a signal handler has raised.
  template <class Call>
  bool run(Call&& call) {
    py::gil_scoped_acquire gil;
    if (error_) {
      return false;
    }
    try {
      call();
      if (PyErr_CheckSignals() != 0) {
        throw py::error_already_set();
      }
    } catch (py::error_already_set& raised) {
      error_.emplace(std::move(raised));
      return false;
    }
    return true;
  }
  // Raises the kept error; call with the GIL held.
  void rethrowIfRaised() {
    if (error_) {
      py::error_already_set raised = std::move(*error_);
      error_.reset();
      throw raised;
    }
  }
  ~PendingPythonError() {
    if (error_) {
      py::gil_scoped_acquire gil;
      error_.reset();
    }
  }

 private:
  std::optional<py::error_already_set> error_;
};

// Hands what the library wrote to its debug output during a call to the logger "velk" (level
// DEBUG), where Python programs look for such lines, instead of stderr. As a call guard it runs
// after the GIL is back: list it before py::gil_scoped_release.
struct DebugOutputToLogger {
  DebugOutputToLogger() = default;
  DebugOutputToLogger(const DebugOutputToLogger&) = delete;
  DebugOutputToLogger& operator=(const DebugOutputToLogger&) = delete;
  ~DebugOutputToLogger() {
    const std::string text = takeDebugOutput();
    if (text.empty()) {
      return;
    }
    try {
      const py::object logger = py::module_::import("logging").attr("getLogger")("velk");
      std::size_t start = 0;
      while (start < text.size()) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        logger.attr("debug")(text.substr(start, end - start));
        start = end + 1;
      }
    } catch (py::error_already_set& failed) {
      failed.discard_as_unraisable("velk: passing the debug output to logging");
    }
  }
};

using LibraryCall = py::call_guard<DebugOutputToLogger, py::gil_scoped_release>;

std::string table(const NativeDevice& device, double first, double last, int hour, int minute,
                  const std::vector<std::string>& kinds, bool csv) {
  const DebugOutputToLogger debugOutput;
  PendingPythonError pending;
  std::string rows;
  try {
    py::gil_scoped_release release;
    rows = device.table(first, last, hour, minute, kinds, csv,
                        [&pending](std::size_t, std::size_t) { return pending.run([] {}); });
  } catch (const Failure&) {
    pending.rethrowIfRaised();  // the stop was a Ctrl-C: raise KeyboardInterrupt, not "stopped"
    throw;
  }
  return rows;
}

// A moment as Unix seconds, or null.
nlohmann::json unixSeconds(const std::optional<Date>& moment) {
  return moment ? nlohmann::json(moment->timeIntervalSince1970()) : nlohmann::json();
}

// The import summary as the package returns it: what `velk import` prints, and the warnings.
std::string importExport(const std::string& exportPath, const std::string& databasePath,
                         const std::optional<std::string>& sourcesPath,
                         const std::optional<py::function>& progress) {
  ingest::ImportOptions options;
  if (sourcesPath) {
    auto rule = ingest::SourceIdentifierRule::fromMappingFile(*sourcesPath);
    if (rule.isFailure()) {
      throw Failure{
          Error(rule.error().domain(), rule.error().code(), "sources: " + rule.error().message())};
    }
    options.sources = std::move(rule).value();
  }
  PendingPythonError pending;
  std::atomic<bool> stop{false};
  options.stopRequested = [&stop] { return stop.load(std::memory_order_relaxed); };
  std::optional<Result<ingest::ImportSummary>> imported;
  {
    py::gil_scoped_release release;
    imported = ingest::importExport(exportPath, databasePath, options,
                                    [&](const ingest::ImportProgress& now) {
                                      const bool goOn = pending.run([&] {
                                        if (progress) {
                                          (*progress)(now.bytesRead, now.totalBytes);
                                        }
                                      });
                                      if (!goOn) {
                                        stop = true;
                                      }
                                    });
  }
  pending.rethrowIfRaised();
  if (imported->isFailure()) {
    throw Failure{imported->error()};
  }
  const ingest::ImportSummary& summary = imported->value();
  nlohmann::json warnings = summary.report.warningLines();
  if (summary.samplesWithoutUnit > 0) {
    warnings.push_back(std::to_string(summary.samplesWithoutUnit) +
                       " quantity records name no unit of their type and were left out");
  }
  return nlohmann::json{{"database", databasePath},
                        {"export", summary.exportDescription},
                        {"samples", summary.samplesStored},
                        {"samples_without_unit", summary.samplesWithoutUnit},
                        {"characteristics", summary.characteristicsFound},
                        {"xml_bytes", summary.xmlBytes},
                        {"earliest_sample_start", unixSeconds(summary.earliestSampleStart)},
                        {"latest_sample_end", unixSeconds(summary.latestSampleEnd)},
                        {"warnings", warnings}}
      .dump();
}

const char* typeName(table::CellType type) {
  switch (type) {
    case table::CellType::date:
      return "date";
    case table::CellType::dateTime:
      return "datetime";
    case table::CellType::integer:
      return "integer";
    case table::CellType::flag:
      return "flag";
    case table::CellType::text:
      return "text";
  }
  return "text";
}

// Library errors reach Python as the package's exceptions (velk/_errors.py).
void translateFailures() {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) {
        std::rethrow_exception(thrown);
      }
    } catch (const Failure& failure) {
      const py::object error = py::module_::import("velk._errors")
                                   .attr("error_for")(failure.error.domain(), failure.error.code(),
                                                      failure.error.message());
      PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    }
  });
}

std::shared_ptr<NativeDevice> makeDevice(
    std::optional<std::string> tz, std::optional<std::string> language,
    std::optional<std::string> now, std::string osVersion, std::optional<std::string> state,
    std::optional<std::string> store, std::optional<std::string> exportPath,
    std::optional<std::string> db, std::optional<std::string> sources,
    std::vector<std::string> sourcePriority) {
  velk::ingest::DeviceOptions options;
  options.timeZone = std::move(tz);
  options.language = std::move(language);
  options.now = std::move(now);
  options.osVersion = std::move(osVersion);
  options.statePath = std::move(state);
  options.storePath = std::move(store);
  options.exportPath = std::move(exportPath);
  options.databasePath = std::move(db);
  options.sourcesPath = std::move(sources);
  options.sourcePriority = std::move(sourcePriority);
  py::gil_scoped_release release;  // an export is read here
  return std::make_shared<NativeDevice>(options);
}

void bindDevice(py::module_& module) {
  py::class_<NativeDevice, std::shared_ptr<NativeDevice>>(module, "NativeDevice")
      .def(py::init(&makeDevice), py::kw_only(), py::arg("tz"), py::arg("language"), py::arg("now"),
           py::arg("os_version"), py::arg("state"), py::arg("store"), py::arg("export"),
           py::arg("db"), py::arg("sources"), py::arg("source_priority"))
      .def_property_readonly("time_zone", &NativeDevice::timeZone)
      .def_property_readonly("warnings", &NativeDevice::warnings)
      .def("instant", &NativeDevice::instant, py::arg("text"), LibraryCall())
      .def("day_moments", &NativeDevice::dayMoments, py::arg("first"), py::arg("last"),
           py::arg("hour"), py::arg("minute"), LibraryCall())
      .def("summaries", &NativeDevice::summaries, py::arg("kinds"), py::arg("moment"),
           LibraryCall())
      .def("table", &table, py::arg("first"), py::arg("last"), py::arg("hour"), py::arg("minute"),
           py::arg("kinds"), py::arg("csv") = false)
      .def("last_extraction_dates", &NativeDevice::lastExtractionDates, LibraryCall())
      .def("request_permissions", &NativeDevice::requestPermissions, py::arg("family"),
           LibraryCall())
      .def("close", &NativeDevice::close);

  py::class_<SummaryReader>(module, "SummaryReader")
      .def(py::init<const NativeDevice&>(), py::arg("device"), LibraryCall())
      .def("day", &SummaryReader::day, py::arg("kinds"), py::arg("moment"), LibraryCall())
      .def("close", &SummaryReader::close, LibraryCall());
}

py::list columnList(const std::vector<std::string>& kinds) {
  py::list columns;
  for (const auto& column : velk::table::columnsOf(kindsOf(kinds))) {
    columns.append(
        py::make_tuple(std::string(column.name), std::string(column.unit), typeName(column.type)));
  }
  return columns;
}

}  // namespace
}  // namespace velk::python

PYBIND11_MODULE(_velk, module) {
  using namespace velk::python;
  module.doc() = "The compiled part of the velk package; use the package, not this module.";
  translateFailures();
  bindDevice(module);
  module.def("import_export", &importExport, py::arg("export"), py::arg("db"), py::arg("sources"),
             py::arg("progress"));
  module.def("columns", &columnList, py::arg("kinds"));
}
