// GNUstep's predicates, for the comparison: peer measure|answers FILE
// One line of output for each line of the file: nanoseconds for parsing and evaluating and for
// evaluating alone, or the answer.

#import <Foundation/Foundation.h>

#include <stdio.h>
#include <string.h>
#include <time.h>

static NSNumber *number(int value) {
    return [NSNumber numberWithInt:value];
}

static NSDictionary *object(void) {
    NSArray *list = [NSArray arrayWithObjects:number(1), number(2), number(3), nil];
    return [NSDictionary
        dictionaryWithObjectsAndKeys:@"10.15.7", @"os", number(0), @"lastStatementExecutionError",
                                     @"Laptop5,2", @"model", @"/Applications/Tool.app", @"path",
                                     @"Install Tool", @"name", number(4096), @"bytes", @"19H2026",
                                     @"build", list, @"list",
                                     [NSArray arrayWithObjects:@"a", @"b", nil], @"words",
                                     [NSDictionary dictionaryWithObject:number(5) forKey:@"k"],
                                     @"map", nil];
}

static NSDictionary *variables(void) {
    return [NSDictionary dictionaryWithObjectsAndKeys:[NSNumber numberWithBool:YES], @"fnc0",
                                                      @"10.8.2", @"fnc1", number(4096), @"fnc2",
                                                      [NSNull null], @"fnc3", nil];
}

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return (double)time.tv_sec * 1e9 + (double)time.tv_nsec;
}

static double nanoseconds(NSString *text, NSPredicate *parsed, int runs) {
    NSDictionary *asked = object();
    NSDictionary *bound = variables();
    const double start = now();
    for (int i = 0; i < runs;) {
        NSAutoreleasePool *pool = [NSAutoreleasePool new];
        for (int j = 0; j < 50 && i < runs; ++j, ++i) {
            NSPredicate *predicate = parsed;
            if (predicate == nil) {
                predicate = [NSPredicate predicateWithFormat:text argumentArray:nil];
            }
            [predicate evaluateWithObject:asked substitutionVariables:bound];
        }
        [pool release];
    }
    return (now() - start) / runs;
}

static void measure(NSString *text) {
    NSPredicate *parsed = [NSPredicate predicateWithFormat:text argumentArray:nil];
    const int runs = 2000;
    nanoseconds(text, nil, 100);
    const double whole = nanoseconds(text, nil, runs);
    printf("%.1f %.1f\n", whole, nanoseconds(text, parsed, runs));
}

static void answer(NSString *text) {
    @try {
        NSPredicate *parsed = [NSPredicate predicateWithFormat:text argumentArray:nil];
        const BOOL holds = [parsed evaluateWithObject:object() substitutionVariables:variables()];
        printf("%s\n", holds ? "yes" : "no");
    } @catch (NSException *exception) {
        printf("raises\n");
    }
}

int main(int argc, char **argv) {
    char line[4096];
    FILE *file = argc == 3 ? fopen(argv[2], "r") : NULL;
    if (file == NULL) {
        fprintf(stderr, "usage: peer measure|answers FILE\n");
        return 2;
    }
    while (fgets(line, sizeof line, file) != NULL) {
        NSAutoreleasePool *pool = [NSAutoreleasePool new];
        line[strcspn(line, "\n")] = '\0';
        NSString *text = [NSString stringWithUTF8String:line];
        if (strcmp(argv[1], "measure") == 0) {
            measure(text);
        } else {
            answer(text);
        }
        [pool release];
    }
    fclose(file);
    return 0;
}
