// From the text properties of an object to the settings that its kind goes by. What cannot be used
// is replaced by the nearest sane value and noted, so that an operator can read about it in the
// log.
#pragma once

#include <string>
#include <vector>

#include "qlog/FileHandler.h"
#include "qlog/Properties.h"

namespace qlog {

using Notes = std::vector<std::string>;  // lines to be logged, one per unusable setting

constexpr char kFileHandlerType[] = "qlg_filehandler";
constexpr char kCaptureHandlerType[] = "qlg_ffdchandler";

struct CaptureSettings {
    std::string baseDirectory;  // empty: nothing is captured
    std::string files;          // list of paths and patterns
    int maxIncidents = 10;      // folders kept
    long maxFileBytes = 0;      // copied of each file
    long minSeconds = 30;       // between two captures
};

[[nodiscard]] int levelOf(const std::string& object, const PropertyMap& properties, int normal,
                          Notes& notes);
// All but the level.
[[nodiscard]] FileSettings fileSettings(const std::string& object, const PropertyMap& properties,
                                        Notes& notes);
[[nodiscard]] CaptureSettings captureSettings(const std::string& object,
                                              const PropertyMap& properties, Notes& notes);

// The property's text; empty when it is missing.
[[nodiscard]] std::string textOf(const PropertyMap& properties, const std::string& name);

}  // namespace qlog
