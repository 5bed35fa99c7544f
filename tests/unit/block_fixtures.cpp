// The fixtures of the blocks, instantiated here and not in each test.
#include "tests/unit/power/power_consumer_fixture.hpp"
#include "tests/unit/power/power_monitor_fixture.hpp"
#include "tests/unit/temperature/temperature_monitor_fixture.hpp"
#include "tests/unit/temperature/temperature_reader_fixture.hpp"
#include "tests/unit/video/on_screen_controls_fixture.hpp"
#include "tests/unit/video/prioritized_text_overlay_setter_fixture.hpp"
#include "tests/unit/video/video_ready_fixture.hpp"

template class support::BlockFixture<blocks::PowerConsumer>;
template class support::BlockFixture<blocks::PowerMonitor>;
template class support::BlockFixture<blocks::TemperatureMonitor>;
template class support::BlockFixture<blocks::TemperatureReader>;
template class support::BlockFixture<blocks::OnScreenControls>;
template class support::BlockFixture<blocks::PrioritizedTextOverlaySetter>;
template class support::BlockFixture<blocks::VideoReady>;
