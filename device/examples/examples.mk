# Inherited by ../harrowmossd.mk. Remove a line when the product has its own version.
HARROWMOSSD_EXAMPLES_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += get_net_log.sh watch_fd.sh fg_logs_start.sh
PRODUCT_PACKAGES += power_logs_start.sh power_logs_stop.sh power_logs_feedback.sh
PRODUCT_PACKAGES += vesk
PRODUCT_PACKAGES += harrowmoss_vendor_logs.sh
PRODUCT_PACKAGES += harrowmoss_modem_logger.sh
PRODUCT_PACKAGES += harrowmoss_trace_sink

SYSTEM_EXT_PRIVATE_SEPOLICY_DIRS += $(HARROWMOSSD_EXAMPLES_DIR)/sepolicy/private
# BoardConfig.mk is read later: if it assigns BOARD_VENDOR_SEPOLICY_DIRS with :=, this line is lost. Use +=
# there, or list the folder there.
BOARD_VENDOR_SEPOLICY_DIRS += $(HARROWMOSSD_EXAMPLES_DIR)/sepolicy/vendor
