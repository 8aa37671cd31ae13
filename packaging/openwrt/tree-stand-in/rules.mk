# The commands of a package tree that package Makefiles use; with include/ it is as much of such a tree as ../build-package needs.
INCLUDE_DIR := $(TOPDIR)/include

INSTALL_DIR := install -d -m0755
INSTALL_BIN := install -m0755
INSTALL_CONF := install -m0600
INSTALL_DATA := install -m0644
CP := cp -fpR
LN := ln -sf
