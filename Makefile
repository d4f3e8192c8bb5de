# The two commands of the README. Each installs what is missing, builds, and runs.
BUILD      ?= build
CMAKE_ARGS ?=
JOBS       ?= $(shell nproc)

.PHONY: all deps configure build demo test format format-check bench peers clean

all: build

deps:
	@bash scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD) $(CMAKE_ARGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# The main job: plays the demo scenario (through the sound device when one opens, else offline)
# and writes its mix and its events next to the build.
demo: build
	@bash scripts/demo $(BUILD)

test: build
	@cd $(BUILD) && SDL_AUDIODRIVER=dummy SDL_NO_SIGNAL_HANDLERS=1 \
	    ctest --output-on-failure -j $(JOBS) --timeout 300

format:
	@git ls-files '*.cpp' '*.hpp' | xargs clang-format -i

format-check:
	@git ls-files '*.cpp' '*.hpp' | xargs clang-format --dry-run --Werror

# The peers comparison needs OpenAL Soft and SDL2_mixer as well.
bench: build
	@bash scripts/install-deps --peers
	@bash scripts/bench $(BUILD)

clean:
	@rm -rf $(BUILD)
