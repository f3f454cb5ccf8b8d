#!/usr/bin/env python3
"""Loads an ad through the SDK's C interface with ctypes, prints each delegate event
as it comes, closes the ad with the Escape key and exits 0.

usage: show_ad.py LIBQUOVSDK [BID_SERVER_BASE]   (else QUOV_BID_SERVER_BASE)"""
import ctypes
import os
import sys

lib = ctypes.CDLL(sys.argv[1])
base = sys.argv[2] if len(sys.argv) > 2 else os.environ.get("QUOV_BID_SERVER_BASE")


class Error(ctypes.Structure):
    _fields_ = [("domain", ctypes.c_char_p), ("code", ctypes.c_int64), ("description", ctypes.c_char_p)]


Event = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
BidEvent = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p)
ErrorEvent = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Error))


class Delegate(ctypes.Structure):
    _fields_ = [("user_data", ctypes.c_void_p), ("on_fetched_bid", BidEvent), ("on_loaded", Event),
                ("on_displayed", Event), ("on_clicked", Event), ("on_closed", Event),
                ("on_load_failed", ErrorEvent)]


events = []


def event(name):
    def call(_user):
        events.append(name)
        print(name, flush=True)
    return Event(call)


def failed(_user, error):
    events.append("onQuovSDKAdLoadFailed")
    print("onQuovSDKAdLoadFailed", error.contents.domain.decode(), error.contents.code, flush=True)


def fetched(_user, _bid):
    events.append("onQuovSDKAdFetchedBid")
    print("onQuovSDKAdFetchedBid", flush=True)


# Kept referenced for as long as the SDK may call them.
delegate = Delegate(None, BidEvent(fetched), event("onQuovSDKAdLoaded"), event("onQuovSDKAdDisplayed"),
                    event("onQuovSDKAdClicked"), event("onQuovSDKAdClosed"), ErrorEvent(failed))

Done = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p)
lib.quov_setup.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
lib.quov_load_ad.argtypes = [ctypes.c_char_p]
lib.quov_last_error_message.restype = ctypes.c_char_p
lib.quov_main_loop_run_until.argtypes = [Done, ctypes.c_void_p, ctypes.c_int]
lib.quov_frame_attach_surface.argtypes = [ctypes.c_int, ctypes.c_int, ctypes.c_double]
lib.quov_frame_key.argtypes = [ctypes.c_int, ctypes.c_int]
lib.quov_host_set_bundle_info.argtypes = [ctypes.POINTER(ctypes.c_char_p), ctypes.POINTER(ctypes.c_char_p),
                                          ctypes.c_size_t]
lib.quov_host_set_bid_server_base.argtypes = [ctypes.c_char_p]
QUOV_KEY_ESCAPE = 0

# Without the bundle information setup fails, with a message rather than a crash.
if lib.quov_setup(b"py-app", b"py-key") == 0:
    sys.exit("setup should have failed without bundle information")
print("setup refused:", lib.quov_last_error_message().decode(), flush=True)

info = {b"CFBundleIdentifier": b"org.quov.python", b"CFBundleShortVersionString": b"1.0"}
keys = (ctypes.c_char_p * len(info))(*info.keys())
values = (ctypes.c_char_p * len(info))(*info.values())
lib.quov_host_set_bundle_info(keys, values, len(info))
if lib.quov_host_set_bid_server_base(base.encode() if base else None) != 0:
    sys.exit("bid server: " + lib.quov_last_error_message().decode())
lib.quov_frame_attach_surface(375, 812, 1.0)
if lib.quov_setup(b"py-app", b"py-key") != 0:
    sys.exit("setup: " + lib.quov_last_error_message().decode())
lib.quov_set_delegate(ctypes.byref(delegate))
lib.quov_load_ad(b"slot")

shown = Done(lambda _u: int("onQuovSDKAdDisplayed" in events or "onQuovSDKAdLoadFailed" in events))
if not lib.quov_main_loop_run_until(shown, None, 20000) or "onQuovSDKAdDisplayed" not in events:
    sys.exit("no ad shown: %s" % events)
if not lib.quov_frame_key(QUOV_KEY_ESCAPE, 1) or not lib.quov_frame_key(QUOV_KEY_ESCAPE, 0):
    sys.exit("the Escape key was not taken")
lib.quov_flush(10000)
lib.quov_set_delegate(None)
if events != ["onQuovSDKAdLoaded", "onQuovSDKAdDisplayed", "onQuovSDKAdClosed"]:
    sys.exit("events: %s" % events)
