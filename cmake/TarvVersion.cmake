# The library's version: the one place it is written. Read by the project, the fuzz harnesses'
# project, and passed to the sources as TARV_VERSION.
set(TARV_VERSION 2.1.0)
