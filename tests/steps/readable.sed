# The text form as a test reads it: basic types by name, no places of the source.
s/ \[[0-9:]+\]//
s/\bt1\b/tbool/g
s/\bt2\b/tchar/g
s/\bt3\b/tuchar/g
s/\bt4\b/twchar/g
s/\bt5\b/tshort/g
s/\bt6\b/tushort/g
s/\bt7\b/tint/g
s/\bt8\b/tuint/g
s/\bt9\b/tlong/g
s/\bt10\b/tulong/g
s/\bt11\b/tllong/g
s/\bt12\b/tullong/g
s/\bt13\b/tfloat/g
s/\bt14\b/tdouble/g
s/\bt15\b/tldouble/g
# The optimizer gives a function a type of its own.
s/\(RETURN (\w+) \(NAME \w+ @/(RETURN \1 (NAME @/
