# Inherited by ../harrowmossd.mk. Take a line out when the product has the real thing.
HARROWMOSSD_EXAMPLES_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += get_net_log.sh watch_fd.sh fg_logs_start.sh
PRODUCT_PACKAGES += power_logs_start.sh power_logs_stop.sh power_logs_feedback.sh
PRODUCT_PACKAGES += vesk
PRODUCT_PACKAGES += harrowmoss_vendor_logs.sh
PRODUCT_PACKAGES += harrowmoss_modem_logger.sh
PRODUCT_PACKAGES += harrowmoss_trace_sink

SYSTEM_EXT_PRIVATE_SEPOLICY_DIRS += $(HARROWMOSSD_EXAMPLES_DIR)/sepolicy/private
# A BoardConfig.mk that assigns BOARD_VENDOR_SEPOLICY_DIRS with := drops this line without a word, because
# it is read after the product's makefiles: use += there, or name the folder there.
BOARD_VENDOR_SEPOLICY_DIRS += $(HARROWMOSSD_EXAMPLES_DIR)/sepolicy/vendor
