#!/usr/bin/env bash
echo "demo: not yet" >&2
