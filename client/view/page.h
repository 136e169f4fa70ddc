// The page about a run: one HTML file that needs nothing else.
#pragma once

#include <string>
#include <vector>

#include "client/reader/run_source.h"
#include "client/view/survey.h"

struct PageFile {
  std::string path;
  int64_t bytes;
  std::string finding;  // what `check` says of it, "" for nothing
};

struct RunPage {
  std::string run;  // as `log` is to be told
  std::string name;
  std::string state;  // "" when it cannot be told
  std::string types;
  std::string build;
  std::string quota;
  std::vector<PageFile> files;
  std::vector<std::string> findings;  // of `check`, about what is missing
};

// Below 2 MiB whatever the run holds: long tables are cut, and say so.
std::string page_html(const RunPage& page, const RunSurvey& survey);

// Its two parts around the data, a JSON text without '<', and its style and script.
extern const char kPageHead[];
extern const char kPageTail[];
extern const char kPageStyle[];
extern const char kPageScript[];
