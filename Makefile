# The words people type. Each installs what is missing first (tools/bootstrap says what it does).
.PHONY: demo check bench docs install

demo:
	tools/bootstrap
	tools/demo

check:
	tools/bootstrap
	tools/check

bench:
	tools/bootstrap bench
	tools/bench

docs:
	tools/bootstrap docs
	doxygen docs/Doxyfile

install:
	tools/bootstrap
	cmake --preset release
	cmake --build --preset release
	cmake --install build/release $(if $(PREFIX),--prefix $(PREFIX))
