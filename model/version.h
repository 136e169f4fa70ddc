// The version of daemon and client: the latest one in CHANGELOG.md. CMakeLists.txt reads it from
// this file.
#pragma once

constexpr char kReleaseVersion[] = "1.5";
