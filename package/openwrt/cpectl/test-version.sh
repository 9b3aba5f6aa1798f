#!/bin/sh
# Stands for the check that every program of a package names its version: these have nothing to say
# but answers. cpectl takes a version flag for a command it does not have: silent, status 255.

case $1 in
    cpectl)
        said=$(cpectl --version 2>&1)
        [ $? -eq 255 ] && [ -z "$said" ] ;;
    cpectl-platform) ;;
    *) exit 1 ;;
esac
