# What gdb is to print where it knows of a class no more than the name: what stands behind references and pointers.
set width 0
up-silently
print reference
print *pointer
print inetReference
print guidReference
print clearedException
print overwrittenException
print overwrittenAddress
