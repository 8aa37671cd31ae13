# Builds what BuildPackage names, below BUILD_DIR, into packages in BIN_DIR. One source for all packages of the Makefile.
PKG_BUILD_DIR := $(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR := $(PKG_BUILD_DIR)/ipkg-install

all:

# The archive lies in DL_DIR already, and is what the Makefile says.
define Build/Prepare
	echo "$(PKG_HASH)  $(DL_DIR)/$(PKG_SOURCE)" | sha256sum --check
	mkdir -p $(BUILD_DIR)
	tar -C $(BUILD_DIR) -xzf $(DL_DIR)/$(PKG_SOURCE)
endef

.built:
	rm -rf $(PKG_BUILD_DIR)
	$(Build/Prepare)
	$(Build/Configure)
	$(Build/Compile)
	$(Build/Install)
.PHONY: all .built

# Fields of a package's control file; a "+" of DEPENDS only matters to a tree's menu.
comma := ,
empty :=
space := $(empty) $(empty)
define control_of
Package: $(1)
Version: $(PKG_VERSION)-$(PKG_RELEASE)
Depends: $(subst $(space),$(comma)$(space),libc $(DEPENDS:+%=%))
License: $(PKG_LICENSE)
Section: $(SECTION)
Architecture: $(ARCH_PACKAGES)
Maintainer: $(PKG_MAINTAINER)
URL: $(URL)
Require-User: $(USERID)
Description: $(TITLE)
$(empty)
endef

# A package is three members in a compressed tar: its format's version, what it is, and its files.
define pack
	tar -C $(2)/$(1) --owner=0 --group=0 --sort=name --exclude=./CONTROL -czf $(2)/data.tar.gz .
	tar -C $(2)/$(1)/CONTROL --owner=0 --group=0 --sort=name -czf $(2)/control.tar.gz .
	echo 2.0 >$(2)/debian-binary
	tar -C $(2) --owner=0 --group=0 -czf $(BIN_DIR)/$(1)_$(PKG_VERSION)-$(PKG_RELEASE)_$(ARCH_PACKAGES).ipk \
		./debian-binary ./control.tar.gz ./data.tar.gz
endef

# A recipe's texts are written before its commands run, hence two.
define rules_of
all: package-$(1)
files-$(1): .built
	$(INSTALL_DIR) $(BIN_DIR) $(PKG_BUILD_DIR)/ipkg-$(1)/$(1)/CONTROL
	$$(call Package/$(1)/install,$(PKG_BUILD_DIR)/ipkg-$(1)/$(1))
package-$(1): files-$(1)
	$$(file >$(PKG_BUILD_DIR)/ipkg-$(1)/$(1)/CONTROL/control,$$(CONTROL_$(1)))
	$$(if $$(Package/$(1)/conffiles),$$(file >$(PKG_BUILD_DIR)/ipkg-$(1)/$(1)/CONTROL/conffiles,$$(Package/$(1)/conffiles)))
	$$(call pack,$(1),$(PKG_BUILD_DIR)/ipkg-$(1))
endef

# LEFT_OUT: packages whose libraries are not to be had for the target.
define BuildPackage
$(eval DEPENDS :=)
$(eval USERID :=)
$(eval $(Package/$(1)))
$(eval CONTROL_$(1) := $$(call control_of,$(1)))
$(if $(filter $(1),$(LEFT_OUT)),,$(eval $(call rules_of,$(1))))
endef
