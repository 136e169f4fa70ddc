// Default properties of a bench phone; `--prop` replaces any of them.
#pragma once

struct DefaultProperty {
  const char* key;
  const char* value;
};

// clang-format off
constexpr DefaultProperty kDefaultProperties[] = {
    {"ro.build.version.sdk",          "33"},
    {"ro.build.version.release",      "13"},
    {"ro.build.version.incremental",  "1042"},
    {"ro.build.type",                 "userdebug"},
    {"ro.build.tags",                 "test-keys"},
    {"ro.build.display.id",           "QZ201A V1.02"},
    {"ro.build.id",                   "TQ1A.230105.001"},
    {"ro.build.date.utc",             "1672876800"},
    {"ro.build.fingerprint",          "zelka/QZ201A/QZ201A:13/TQ1A.230105.001/1042:userdebug/test-keys"},
    {"ro.product.brand",              "zelka"},
    {"ro.product.manufacturer",       "zelka"},
    {"ro.product.model",              "QZ201A"},
    {"ro.product.name",               "QZ201A"},
    {"ro.product.device",             "QZ201A"},
    {"ro.product.board",              "bench"},
    {"ro.product.cpu.abi",            "arm64-v8a"},
    {"ro.hardware",                   "bench"},
    {"ro.serialno",                   "BENCH0001"},
    {"ro.bootmode",                   "normal"},
    {"ro.boot.bootreason",            "reboot,bench"},
    {"sys.boot.reason",               "reboot,bench"},
    {"ro.debuggable",                 "1"},
    {"ro.secure",                     "1"},
    {"ro.crypto.state",               "encrypted"},
    {"gsm.network.type",              "LTE,Unknown"},
    {"gsm.operator.iso-country",      "de,"},
    {"gsm.sim.state",                 "LOADED,ABSENT"},
    {"persist.sys.timezone",          "UTC"},
    {"sys.boot_completed",            "1"},
    {"dev.bootcomplete",              "1"},
    {"sys.user.0.ce_available",       "true"},
    {"init.svc.logd",                 "running"},
};

// Set by the vendor's part of the system. The platform's policy hides them unless the device kit's property_contexts labels them.
constexpr DefaultProperty kVendorProperties[] = {
    {"ro.vendor.build.display.id",    "QZ201A V1.02"},
};
// clang-format on
