# SPDX-License-Identifier: MIT
# Short names for the scripts; `make` alone lists them.

PREFIX ?= /usr/local
DESTDIR ?=

.PHONY: help run test lint format coverage doc fuzz bench faults nightly install deb

help:
	@echo 'make run        serve the example catalogs (scripts/run)'
	@echo 'make test       build and run every test (scripts/test)'
	@echo 'make lint       check the sources (scripts/lint)'
	@echo 'make format     format the sources (scripts/format)'
	@echo 'make coverage   measure the coverage of the tests (scripts/coverage)'
	@echo 'make doc        make the documents as HTML (scripts/docs)'
	@echo 'make fuzz       attack every parser for a minute (scripts/fuzz)'
	@echo 'make bench      measure (scripts/bench)'
	@echo 'make faults     fail allocations and file operations under procedures, requests and tools'
	@echo 'make nightly    all of this, with the long forms of tests (scripts/nightly)'
	@echo 'make deb        build the Debian packages in build/deb (scripts/deb)'
	@echo 'make install    install under PREFIX ($(PREFIX)), or below DESTDIR for a package'

run test lint format coverage fuzz bench nightly deb:
	scripts/$@

doc:
	scripts/docs

faults:
	scripts/deps
	cmake --preset dev
	cmake --build --preset dev --target faults_test
	build/dev/tests/faults_test

install:
	scripts/deps
	cmake --preset install -DCMAKE_INSTALL_PREFIX='$(PREFIX)'
	cmake --build --preset install
	DESTDIR='$(DESTDIR)' cmake --install build/install
