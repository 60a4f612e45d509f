-- error -128: User canceled.
error number -128
