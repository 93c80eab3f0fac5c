// generate_export: writes a synthetic health export for benchmarks and manual tests.
//
//   generate_export --days 365 --output /tmp/export.xml
//   generate_export --days 365 --output /tmp/export.zip    (apple_health_export/export.xml inside,
//                                                           with an export_cda.xml beside it)
#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "ExportGenerator.h"

int main(int argc, char** argv) {
  CLI::App app{"Writes a synthetic health export (about 0.6 MB of XML per day)."};
  velk::bench::ExportShape shape;
  std::filesystem::path output;
  app.add_option("--days", shape.days, "Number of days of data")->check(CLI::PositiveNumber);
  app.add_option("--seed", shape.seed, "Seed of the random values");
  app.add_option("--output,-o", output, "Output file: .xml, or .zip for an export archive")
      ->required();
  CLI11_PARSE(app, argc, argv);

  const bool zipped = output.extension() == ".zip";
  const auto xmlPath = zipped ? std::filesystem::path(output.string() + ".xml.tmp") : output;
  std::FILE* out = std::fopen(xmlPath.c_str(), "wb");
  if (out == nullptr) {
    std::cerr << "cannot write " << xmlPath << "\n";
    return 1;
  }
  std::vector<char> buffer(1u << 20);
  std::setvbuf(out, buffer.data(), _IOFBF, buffer.size());
  const auto records = velk::bench::ExportGenerator(shape).write(out);
  std::fclose(out);

  if (zipped) {
    const bool written = velk::bench::writeExportArchive(xmlPath.c_str(), output.c_str());
    std::filesystem::remove(xmlPath);
    if (!written) {
      std::cerr << "cannot write the archive " << output << "\n";
      return 1;
    }
  }
  std::cout << records << " records, " << std::filesystem::file_size(output) << " bytes in "
            << output.string() << "\n";
  return 0;
}
