package com.ostrel.zeld.interfaces;

// Hand-written in C++ (include/com/ostrel/zeld/interfaces/ServiceIdentifier.h): its parcel
// layout is fixed and its reader refuses truncated or malformed records.
parcelable ServiceIdentifier cpp_header "com/ostrel/zeld/interfaces/ServiceIdentifier.h";
