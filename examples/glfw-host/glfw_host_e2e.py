#!/usr/bin/env python3
"""The GLFW host end to end: on a virtual X server (Mesa's software OpenGL) against the
sample bid server, it checks a frame read back from OpenGL at the laid-out places,
then ends the ad through real X input (XTest, by xdotool) and checks the delegate
calls the host printed and the trackers the server saw.

usage: glfw_host_e2e.py QUOV_BID_SERVER QUOV_GLFW_HOST XVFB XDOTOOL"""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.request

BID_SERVER, HOST, XVFB, XDOTOOL = sys.argv[1:5]
SCALE = 2
# The sample server's portrait creative (600 x 900) on a 375 x 812 point screen: the
# image box is 0.85 of the width, centred; the 40-point close button stands above
# it, 3 points past its right edge and 10 points clear of its top.
BOX_W = 375 * 0.85
BOX_H = BOX_W * 900 / 600
BOX_X, BOX_Y = (375 - BOX_W) / 2, (812 - BOX_H) / 2
CLOSE_X, CLOSE_Y = BOX_X + BOX_W + 3 - 40, BOX_Y - 10 - 40
HOST_CLEAR = (200, 120, 40)  # the host's clear colour
MASKED = tuple(round(c * 0.2) for c in HOST_CLEAR)  # under the 80 % black mask


def read_ppm(path):
    with open(path, "rb") as f:
        data = f.read()
    magic, size, depth, pixels = data.split(b"\n", 3)
    assert magic == b"P6" and depth == b"255", "not a binary PPM"
    width, height = map(int, size.split())
    return width, height, pixels


def near(actual, expected, tolerance):
    return all(abs(a - e) <= tolerance for a, e in zip(actual, expected))


def check_frame(path):
    """Problems found in the frame, as text; none when every place looks as laid out."""
    width, height, pixels = read_ppm(path)
    if (width, height) != (375 * SCALE, 812 * SCALE):
        return ["frame is %dx%d" % (width, height)]

    def at(x, y):  # in points
        i = (int(y * SCALE) * width + int(x * SCALE)) * 3
        return tuple(pixels[i:i + 3])

    problems = []
    expectations = [
        # (what, x, y, test)
        ("mask, top left", 2, 2, lambda p: near(p, MASKED, 3)),
        ("mask, bottom right", 372, 808, lambda p: near(p, MASKED, 3)),
        ("mask, left of the image box", BOX_X - 2, 406, lambda p: near(p, MASKED, 3)),
        ("mask, below the image box", 187, BOX_Y + BOX_H + 2, lambda p: near(p, MASKED, 3)),
        ("image, inside its left edge", BOX_X + 2, 406, lambda p: sum(p) > 3 * 200),
        ("image, the creative's blue", BOX_X + BOX_W / 10, 406, lambda p: near(p, (30, 64, 175), 12)),
        ("mask, above the close button", CLOSE_X + 20, CLOSE_Y - 3, lambda p: near(p, MASKED, 3)),
        ("close button, the x at its centre", CLOSE_X + 20, CLOSE_Y + 20, lambda p: min(p) > 200),
        ("close button, its dark disc", CLOSE_X + 20, CLOSE_Y + 32, lambda p: near(p, (38, 38, 42), 10)),
        ("mask, between button and image", CLOSE_X + 20, BOX_Y - 5, lambda p: near(p, MASKED, 3)),
    ]
    for what, x, y, test in expectations:
        if not test(at(x, y)):
            problems.append("%s at (%.1f, %.1f) points is %s" % (what, x, y, at(x, y)))
    return problems


def start_bid_server():
    server = subprocess.Popen([BID_SERVER, "--port", "0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              text=True)
    line = server.stdout.readline()
    if "listening on " not in line:
        server.kill()
        sys.exit("the bid server did not report its address: %r" % line)
    return server, line.split("listening on ", 1)[1].strip()


def tracker_hits(base, endpoint):
    with urllib.request.urlopen(base + "/stats", timeout=10) as res:
        stats = json.load(res)
    return [hit["params"] for hit in stats.get("tracking", []) if hit.get("endpoint") == endpoint]


def wait_for(predicate, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if predicate():
            return True
        time.sleep(0.05)
    return False


def run_case(env, scratch, name, expect, ends_with, input_steps, click_params):
    """One ad shown and ended through real input; a list of problems."""
    opened = os.path.join(scratch, name + ".opened")
    opener = os.path.join(scratch, name + ".sh")
    with open(opener, "w") as f:  # records each URL; opens only the sample's deep links
        f.write('#!/bin/sh\nprintf "%%s\\n" "$1" >> "%s"\ncase "$1" in quovdemo://*) exit 0;; *) exit 1;; esac\n'
                % opened)
    os.chmod(opener, 0o755)
    shot = os.path.join(scratch, name + ".ppm")
    server, base = start_bid_server()
    host = subprocess.Popen([HOST, "--bid-server", base, "--scale", str(SCALE), "--screenshot", shot,
                             "--url-opener", opener, expect, "--timeout", "30"],
                            env=env, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True)
    problems = []
    try:
        if not wait_for(lambda: os.path.exists(shot) or host.poll() is not None, 30) or not os.path.exists(shot):
            host.kill()
            return ["no frame was written: " + host.communicate()[1]]
        problems += check_frame(shot)
        window = subprocess.run([XDOTOOL, "search", "--sync", "--name", "QuovSDK GLFW host"], env=env,
                                capture_output=True, text=True, timeout=10).stdout.split()[0]
        for step in input_steps:
            subprocess.run([XDOTOOL] + [a.replace("WINDOW", window) for a in step], env=env, check=True,
                           timeout=10)
        out, err = host.communicate(timeout=30)
        if host.returncode != 0:
            problems.append("host exited with %d: %s" % (host.returncode, err))
        events = [json.loads(line)["event"] for line in out.splitlines()]
        if events != ["onQuovSDKAdLoaded", "onQuovSDKAdDisplayed", ends_with]:
            problems.append("delegate calls %s" % events)
        views, clicks = tracker_hits(base, "/track/view"), tracker_hits(base, "/track/click")
        if len(views) != 1:
            problems.append("%d impression reports" % len(views))
        clicked = ends_with == "onQuovSDKAdClicked"
        if len(clicks) != (1 if clicked else 0):
            problems.append("%d click reports" % len(clicks))
        for key, value in (click_params or {}).items():
            if clicks and clicks[0].get(key) != value:
                problems.append("click report %s=%s, not %s" % (key, clicks[0].get(key), value))
        if os.path.exists(opened) != clicked:
            problems.append("a URL was opened" if not clicked else "nothing was opened")
        return problems
    finally:
        if host.poll() is None:
            host.kill()
            host.wait()
        server.terminate()
        server.wait()


def point(x, y):
    return [str(round(x * SCALE)), str(round(y * SCALE))]


def main():
    scratch = tempfile.mkdtemp(prefix="quov-glfw-")

    # Another X server starting at the same moment can take the display this one
    # announced; start a fresh one until one answers.
    for _ in range(3):
        read_end, write_end = os.pipe()
        xvfb = subprocess.Popen([XVFB, "-displayfd", str(write_end), "-screen", "0", "1000x1800x24", "-nolisten",
                                 "tcp", "-noreset"], pass_fds=(write_end,), stderr=subprocess.DEVNULL)
        os.close(write_end)
        display = os.read(read_end, 16).decode().strip()
        os.close(read_end)
        env = dict(os.environ, DISPLAY=":" + display, LIBGL_ALWAYS_SOFTWARE="1")
        if display and wait_for(lambda: subprocess.run([XDOTOOL, "getmouselocation"], env=env,
                                                       capture_output=True).returncode == 0, 10):
            break
        xvfb.kill()
        xvfb.wait()
    else:
        sys.exit("no Xvfb display answered")
    env.pop("WAYLAND_DISPLAY", None)

    ad_centre = point(187.5, 406)
    close_centre = point(CLOSE_X + 20, CLOSE_Y + 20)
    cases = [
        # (name, host flag, last delegate call, xdotool steps, click report values)
        ("close-button", "--close", "onQuovSDKAdClosed",
         [["mousemove", "--window", "WINDOW"] + close_centre, ["click", "1"]], None),
        # The press in window pixels comes back as points inside the image box.
        ("ad-click", "--click", "onQuovSDKAdClicked",
         [["mousemove", "--window", "WINDOW"] + ad_centre, ["click", "1"]],
         {"abs_down_x": str(int(187.5 - BOX_X)), "abs_down_y": str(int(406 - BOX_Y))}),
        ("escape-key", "--close", "onQuovSDKAdClosed",
         [["mousemove", "--window", "WINDOW", "10", "10"], ["windowfocus", "--sync", "WINDOW"], ["key", "Escape"]], None),
        ("enter-key", "--click", "onQuovSDKAdClicked",
         [["mousemove", "--window", "WINDOW", "10", "10"], ["windowfocus", "--sync", "WINDOW"], ["key", "Return"]], None),
    ]
    failed = False
    try:
        for name, flag, ends_with, steps, click_params in cases:
            problems = run_case(env, scratch, name, flag, ends_with, steps, click_params)
            print("%s: %s" % (name, "ok" if not problems else "FAILED"))
            for p in problems:
                print("  " + p)
            failed = failed or bool(problems)
    finally:
        xvfb.terminate()
        xvfb.wait()
        shutil.rmtree(scratch, ignore_errors=True)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
