# What stands in for OpenWrt's rules.mk, package.mk and cmake.mk: enough to expand the Makefile of a
# package, to show what it says and to run its install recipes. Variables from outside: STUB (the
# folder of the stand-ins), STAGE (where packages are put together), PKG_INSTALL_DIR, NAME (of the
# variable to show).

INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
INSTALL_DATA := install -m0644
CP := cp -fpR
INCLUDE_DIR := $(STUB)
PKG_BUILD_DIR = $(STAGE)/build
qstrip = $(strip $(subst ",,$(1)))

# As in OpenWrt, the definition of a package is evaluated for its fields.
define BuildPackage
$(eval $(Package/$(1)))
$(foreach field,SECTION CATEGORY TITLE DEPENDS CONFLICTS,$(eval $(1)-$(field) := $($(field))))
$(foreach field,SECTION CATEGORY TITLE DEPENDS CONFLICTS,$(eval $(field) :=))
PACKAGES += $(1)

.PHONY: install-$(1)
install-$(1):
	mkdir -p $(STAGE)/$(1)
$(call Package/$(1)/install,$(STAGE)/$(1))
endef

# OpenWrt clears these before each package.
SECTION :=
CATEGORY :=
TITLE :=
DEPENDS :=
CONFLICTS :=
PACKAGES :=

.PHONY: all prepare install-dev show
all:
prepare:
	$(Build/Prepare)
install-dev:
	$(call Build/InstallDev,$(STAGE)/dev)
show:
	$(info $($(NAME)))
	@:
