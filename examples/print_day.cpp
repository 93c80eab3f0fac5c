// Prints the three summary documents (sleep, physical, body) of one day of an Apple Health export,
// or of a database made from one by `velk import`, using the C++ front of the library (libvelk++).
//
//   print_day_cpp EXPORT|DATABASE TIME_ZONE YYYY-MM-DD
//   print_day_cpp data/sample/watch5-2020/export.xml Africa/Johannesburg 2020-04-13
//   print_day_cpp ~/.local/share/velk/health.sqlite Africa/Johannesburg 2020-04-13
//
// Build with CMake: find_package(VelkAppleHealth), then link VelkAppleHealth::velk++ (C++20).
//
// The program drives the main queue itself (it has no run loop of its own): the physical and body
// documents are delivered there. The sleep document arrives on the health store's queue, so each
// completion only stores its text under a lock, and the main thread waits until all three are in.
#include <velk/Calendar.h>
#include <velk/DeviceConfiguration.h>
#include <velk/VelkExtractionManager.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace {

struct Document {
  std::string kind;
  std::optional<std::string> json{};
  std::optional<std::string> error{};
};

// Whether the file is an SQLite database (a `velk import`) rather than an export.
bool isDatabase(const char* path) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, 16> header{};
  file.read(header.data(), header.size());
  return file && std::string_view(header.data(), header.size()) ==
                     std::string_view("SQLite format 3\0", 16);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: print_day_cpp EXPORT|DATABASE TIME_ZONE YYYY-MM-DD\n";
    return 2;
  }
  int year = 0, month = 0, day = 0;
  if (std::sscanf(argv[3], "%d-%d-%d", &year, &month, &day) != 3) {
    std::cerr << "print_day_cpp: " << argv[3] << " is not a date such as 2020-04-13\n";
    return 2;
  }

  velk::ingest::DeviceConfiguration configuration;
  (isDatabase(argv[1]) ? configuration.databasePath : configuration.exportPath) = argv[1];
  configuration.timeZone = argv[2];
  auto configured = velk::ingest::makeConfiguredDevice(configuration);  // reads the data now
  if (configured.isFailure()) {
    std::cerr << "print_day_cpp: open: " << configured.error().message() << "\n";
    return 1;
  }
  for (const auto& warning : configured.value().warnings) {
    std::cerr << "print_day_cpp: warning: " << warning << "\n";
  }
  const auto& device = configured.value().device;
  velk::platform::DeviceScope installed(device);

  velk::platform::DateComponents noonOfDay;
  noonOfDay.year = year;
  noonOfDay.month = month;
  noonOfDay.day = day;
  noonOfDay.hour = 12;
  const auto noon = velk::platform::Calendar(configuration.timeZone).date(noonOfDay);
  if (!noon) {
    std::cerr << "print_day_cpp: " << argv[3] << " names no day in " << argv[2] << "\n";
    return 2;
  }

  std::mutex mutex;
  std::array<Document, 3> documents{{{"sleep"}, {"physical"}, {"body"}}};
  int arrived = 0;
  auto deliver = [&](Document& into) {
    return [&](std::optional<nlohmann::json> dictionary, std::optional<velk::Error> error) {
      std::lock_guard lock(mutex);
      if (error) {
        into.error = error->message();
      } else {
        into.json = dictionary->dump();
      }
      ++arrived;
    };
  };
  velk::VelkExtractionManager manager;
  manager.getSleepSummayObjc(*noon, deliver(documents[0]));
  manager.getPhysicalSummaryObjc(*noon, deliver(documents[1]));
  manager.getBodySummaryObjc(*noon, deliver(documents[2]));
  const bool allArrived = device->mainQueue()->runUntil(
      [&] {
        std::lock_guard lock(mutex);
        return arrived == 3;
      },
      std::chrono::seconds(60));

  std::lock_guard lock(mutex);
  int status = allArrived ? 0 : 1;
  if (!allArrived) {
    std::cerr << "print_day_cpp: the documents did not arrive\n";
  }
  for (const auto& document : documents) {
    if (document.json) {
      std::cout << document.kind << ": " << *document.json << "\n";
    } else if (document.error) {
      std::cerr << "print_day_cpp: " << document.kind << ": " << *document.error << "\n";
      status = 1;
    }
  }
  return status;
}
