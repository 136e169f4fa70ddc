// The vendor's modem diagnostic logger, a service that starts and stops on a state property. Legacy
// models have another service with another property.
#pragma once

constexpr char kLegacyModemStateProp[] = "sys.zelka.diag_mdlog_state";
constexpr char kModemStateProp[] = "sys.zelka.diag_mdlog_over_qdss_state";

// True when this model has the legacy modem logger, or a property forces it.
bool is_legacy_diag_mdlog();

// Switches the modem logger off when it runs. Main process, size monitor, watchdog.
void stop_modem_log();
