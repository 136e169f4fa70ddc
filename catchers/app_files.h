// The files that the companion app drops on shared storage for the daemon.
#pragma once

#define APP_FILES "/sdcard/Android/data/cn.zelka.harrowmoss/files/.harrowmoss/"

constexpr char kMobileCfg[] = APP_FILES "MOBILE.cfg";       // options of the mobile type
constexpr char kDiagCfg[] = APP_FILES ".DIAG.cfg";          // mask of the modem logger
constexpr char kDiagMdm2Cfg[] = APP_FILES ".DIAGMDM2.cfg";  // the same for the second modem

#undef APP_FILES
