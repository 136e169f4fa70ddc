# Inherit this from the product's device.mk:
#   $(call inherit-product, vendor/zelka/harrowmossd/device/harrowmossd.mk)

HARROWMOSSD_DIR := $(patsubst %/,%,$(dir $(lastword $(MAKEFILE_LIST))))

PRODUCT_PACKAGES += harrowmossd harrowmossctl

SYSTEM_EXT_PUBLIC_SEPOLICY_DIRS += $(HARROWMOSSD_DIR)/sepolicy/public
SYSTEM_EXT_PRIVATE_SEPOLICY_DIRS += $(HARROWMOSSD_DIR)/sepolicy/private

# Scripts and services of the integrator: replace each example when the product has its own.
$(call inherit-product, $(HARROWMOSSD_DIR)/examples/examples.mk)
