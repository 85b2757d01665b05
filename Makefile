# Top-level targets.  Each works on a fresh Debian 12 machine as root.
#   make deps     install missing Debian packages
#   make build    configure and build (CMake, in build/)
#   make install  deps + build + install into the server's directories
#   make demo     the main job: install, private server, a sample session
#   make check    install, then every test (unit, SQL suites, end to end)
#   make bench    benchmarks; figures go to bench/results/
#   make eval     ranking quality on the CISI collection (bench/results/ranking.txt)
SHELL := /bin/bash
BUILD ?= build
JOBS ?= $(shell nproc)

DEB_PACKAGES = postgresql-15 postgresql-server-dev-15 libpq-dev libkrb5-dev \
               cmake g++ make libgtest-dev wordnet-base python3 libreadline-dev postgresql-15-rum groff-base

# The server's extension directories are shared by every build on the
# machine, so installing and everything that uses the installed extension
# run under one lock.  PGROOT=DIR instead builds against and installs into a
# private copy of the server's tree (made by tools/pgroot.sh on first use),
# so that several checkouts on one machine can install and test at once.
PGROOT ?=
ifeq ($(PGROOT),)
PG_CONFIG := /usr/lib/postgresql/15/bin/pg_config
INSTALL_PREFIX := /usr/local
LOCK = flock /tmp/document-install.lock
else
override PGROOT := $(abspath $(PGROOT))
PG_CONFIG := $(PGROOT)/usr/lib/postgresql/15/bin/pg_config
INSTALL_PREFIX := $(PGROOT)/usr/local
LOCK = flock $(PGROOT).lock
endif
export PGBIN := $(patsubst %/,%,$(dir $(PG_CONFIG)))

.PHONY: deps build install demo check bench eval clean _install _demo _check _bench _eval

deps:
	@missing=""; for p in $(DEB_PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing >/dev/null; \
	fi

build: deps
	@if [ -n "$(PGROOT)" ]; then tools/pgroot.sh "$(PGROOT)"; fi
	cmake -S . -B $(BUILD) -DPG_CONFIG=$(PG_CONFIG) -DCMAKE_INSTALL_PREFIX=$(INSTALL_PREFIX) >/dev/null
	cmake --build $(BUILD) -j $(JOBS)

install: build
	$(LOCK) $(MAKE) --no-print-directory _install

demo: build
	$(LOCK) $(MAKE) --no-print-directory _demo

check: build
	$(LOCK) $(MAKE) --no-print-directory _check

bench: build
	$(LOCK) $(MAKE) --no-print-directory _bench

# Ranking quality on the CISI collection (CISI_DIR, default ../shared/eval/cisi).
eval: build
	$(LOCK) $(MAKE) --no-print-directory _eval

_install:
	CMAKE_INSTALL_ALWAYS=1 cmake --install $(BUILD) >/dev/null

_demo: _install
	DOC_BUILD=$(BUILD) tools/pgserver.sh tools/demo.sh

_check: _install
	tools/run-tests.sh $(BUILD)

_bench: _install
	tools/pgserver.sh bench/run.sh $(BUILD)

_eval: _install
	DOC_BUILD=$(BUILD) tools/pgserver.sh bench/eval.sh

clean:
	rm -rf $(BUILD)
