// The manifest of an archive: every file with size and checksum.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "client/support/environment.h"

// A run or a bundle: `names` are directories below `base`, and so the archive has them.
struct PackSource {
  std::string name;  // of the whole
  std::string base;
  std::vector<std::string> names;
};

// The source that the directories `places` (absolute, without a slash at the end) make: one is
// named by its last component, several by their paths below what they have in common.
PackSource make_source(const std::string& name, const std::vector<std::string>& places);

struct PackedFile {
  std::string path;  // below the base
  int64_t bytes = 0;
  std::string sha256;  // 64 digits; "" when it could not be read
};

// Every regular file of the source, by path, without checksums.
std::vector<PackedFile> list_files(const PackSource& source);

// The checksum of each of `paths`, by the phone's own sha256sum, which is started once for many; ""
// for what is no regular file or could not be read.
std::vector<std::string> sha256_of(const Environment& env, const std::vector<std::string>& paths);

struct ManifestHead {
  std::string name;
  std::string state;     // of a run; "bundle" for another directory
  std::string types;     // "3 (mobile,modem)": of the run, or set when the bundle was made
  std::string build;     // display id, from the content; "" unknown
  std::string identity;  // build fingerprint of the phone that packs
  std::string protocol;  // of the daemon, "not answered"
};

// The manifest's text: "key: value" lines, an empty line, then "SIZE SHA256  PATH" for each file;
// without its first 16 columns this last part is what `sha256sum -c` reads.
std::string manifest_text(const ManifestHead& head, const std::vector<PackedFile>& files);

// A name in the archive, at most 100 bytes: `name`, cut when it is long, and `ending`.
std::string entry_name(const std::string& name, const std::string& ending);

// The manifest's.
std::string manifest_name(const std::string& name);

// A file as an entry of a tar archive: header, content, padding.
std::string tar_entry(const std::string& name, const std::string& content, int64_t now);

// Bytes that an archive of the source can take at most, `manifest` included: what does not compress
// grows a little.
int64_t archive_bound(const PackSource& source, size_t manifest);
