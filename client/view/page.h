// The page about a run: one HTML file without references to others.
#pragma once

#include <string>
#include <vector>

#include "client/reader/run_source.h"
#include "client/view/survey.h"

struct PageFile {
  std::string path;
  int64_t bytes;
  std::string finding;  // of `check`, "" for none
};

struct RunPage {
  std::string run;  // the argument for `log`
  std::string name;
  std::string state;  // "" when unknown
  std::string types;
  std::string build;
  std::string quota;
  std::vector<PageFile> files;
  std::vector<std::string> findings;  // of `check`, about what is missing
};

// Below 2 MiB for any run: long tables are cut, with a line that says so.
std::string page_html(const RunPage& page, const RunSurvey& survey);

// Fixed parts of the page: head, body, style and script. Between body and script comes the data,
// JSON without '<'.
extern const char kPageHead[];
extern const char kPageTail[];
extern const char kPageStyle[];
extern const char kPageScript[];
