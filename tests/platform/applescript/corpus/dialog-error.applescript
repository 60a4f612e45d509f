-- error -1713: No user interaction allowed.
display dialog "Please quit the editor." buttons {"OK"} default button 1
