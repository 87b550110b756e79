# What gdb is to print of DebuggedProgram, stopped in StopHere.
set width 0
up-silently
info locals
print exception
print *pointer
# Variables of gdb are nowhere in the program's memory.
set $exception = exception
set $inet = inet
set $local = local
set $guid = guid
print $exception
print $inet
print $local
print $guid
set print elements 8
print longer
