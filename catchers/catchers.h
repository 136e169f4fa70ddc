// The start routines of the logger types, and their counterparts for the stop. A start routine
// returns 0, or -1 when its fork() failed, and never ends logging.
#pragma once

int catcher_mobile_log(const char* log_dir, const char* name);
int catcher_modem_log(const char* log_dir, const char* name);
int catcher_net_log(const char* log_dir, const char* name);
int start_power_log(const char* log_dir, const char* name);
int catcher_fp_log(const char* log_dir, const char* name);
int start_dump_log(const char* log_dir = nullptr, const char* name = nullptr);
int start_wifi_log(const char* log_dir = nullptr, const char* name = nullptr);
int start_core_dump_log(const char* log_dir = nullptr, const char* name = nullptr);
int catcher_tp_log(const char* log_dir, const char* name);
int start_systrace_log(const char* log_dir, const char* name);
int start_mpss_dump_log(const char* log_dir, const char* name);
int start_memory_log(const char* log_dir = nullptr, const char* name = nullptr);
int start_sensor_log(const char* log_dir = nullptr, const char* name = nullptr);
int start_anr_dumpsys_log(const char* log_dir = nullptr, const char* name = nullptr);

// Called by the stop, in the order of its table. All but stop_router_log(), stop_dump_log() and
// stop_core_dump_log() act only when the mask has their type.
void stop_router_log();
void stop_wifi_log();
void stop_sensor_log();
void stop_power_log(const char* log_dir);
void stop_dump_log();
void stop_systrace_log();
void stop_core_dump_log();
void stop_memory_log();
void stop_anr_dumpsys_log();
void stop_mpss_dump_log();

// A part of stop_systrace_log(): switches the platform's trace service off and tells it so. Waits
// until its worker is gone: 6 s, then a second for each kill. The caller has checked the mask.
void stop_systrace_service();

// Sends one command to the trace service's socket, trying for about 6.2 s. Returns the result of
// closing it; ends the process with status 1 without a connection: only for a forked worker.
int sendSystraceSocket(int code);

// Starts the router log's copier and its rotation when the property asks for them; a step of the
// mobile type. 0, or -1 when the fork failed.
int start_router_log();

// The rotation thread's body: every 10 s the router log is kept below 512,000 bytes, three
// generations. At most one runs.
void* qtrlogThread(void*);
