# Homebrew formula for velmora-agent, built from the release tarball with CMake.
# At run time the agent needs nothing but macOS's own frameworks and libraries:
# nlohmann-json is header-only, and googletest and google-benchmark are there
# only because configuring the source tree finds its test and benchmark
# targets (they are not built).
#
# Each release updates url and sha256. The macOS workflow installs this formula
# from a tap of its own, against a tarball made from the checkout.
class VelmoraAgent < Formula
  desc "Desktop-automation agent for AI brokers"
  homepage "https://github.com/velmora/velmora-agent"
  url "https://github.com/velmora/velmora-agent/releases/download/v0.1.0/velmora-agent-0.1.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"

  depends_on "cmake" => :build
  depends_on "google-benchmark" => :build
  depends_on "googletest" => :build
  depends_on "ninja" => :build
  depends_on "nlohmann-json" => :build
  depends_on "pkgconf" => :build
  # Screenshots use ScreenCaptureKit's one-shot capture, new in macOS 14.
  depends_on macos: :sonoma

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", *std_cmake_args
    system "cmake", "--build", "build", "--target", "velmora_installables"
    system "cmake", "--install", "build"
  end

  test do
    assert_equal "velmora.driver_broker.v1", shell_output("#{bin}/velmora-agent version").strip
    assert_match '"platform": "darwin"', shell_output("#{bin}/velmora-agent register")
    output = pipe_output("#{bin}/velmora-agent run", "{", 3)
    assert_match '"sessionId": "unknown"', output
    assert_match "decode: invalid JSON", output
    assert_path_exists share/"velmora-agent/request.schema.json"
    assert_path_exists man1/"velmora-agent.1"
  end
end
