# SPDX-License-Identifier: LicenseRef-qxkernel
# The words people type. Each installs what is missing first (tools/bootstrap says what it does).
.PHONY: demo check bench docs evidence install uninstall package python distributed demo-distributed

demo:
	tools/bootstrap demo
	tools/demo

check:
	tools/bootstrap check $(if $(CI),ci)
	tools/check

bench:
	tools/bootstrap bench
	tools/bench

evidence:
	tools/bootstrap evidence
	tools/evidence

docs:
	tools/bootstrap docs
	mkdir -p build
	doxygen docs/Doxyfile

install:
	tools/bootstrap install
	tools/install $(if $(PREFIX),"$(PREFIX)")

uninstall:
	tools/install --remove

package:
	tools/bootstrap package
	tools/package

python:
	tools/bootstrap python
	cmake --preset release -DQX_PYTHON=ON $(if $(PYTHON),-DQX_PYTHON_EXECUTABLE=$(PYTHON))
	cmake --build --preset release --target qx_python

distributed:
	tools/bootstrap distributed
	cmake --preset release -DQX_DISTRIBUTED=ON $(if $(PETSC_DIR),-DPETSC_DIR=$(PETSC_DIR))
	cmake --build --preset release --target qx_distributed

demo-distributed:
	tools/bootstrap demo-distributed
	tools/demo_distributed
